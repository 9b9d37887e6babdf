// The catalogue's file: its tables, opening it, and replacing a damaged one.
#ifndef VANTRO_SERVICE_CATALOGUE_DATABASE_SCHEMA_H
#define VANTRO_SERVICE_CATALOGUE_DATABASE_SCHEMA_H

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "service/catalogue/database/database.h"
#include "service/error.h"

namespace vantro::service::catalogue {

// Opens the file for writing, or makes it. If find_damage() finds damage, or the file has another
// version, it is first moved aside to an unused name; `say` gets one line about it. Throws an Error
// if the file cannot be read or a new one cannot be made.
std::unique_ptr<Database> open_catalogue_file(const std::filesystem::path &file,
                                              const std::function<void(const std::string &)> &say);

// Opens the file again and checks all of it. Returns the damage, if there is any. If the check
// itself fails, for example because a read fails, throws an Error that is not damage. During the
// check nothing may write to the file; reads are allowed.
std::optional<Error> find_damage(const std::filesystem::path &file);

// Moves a damaged file aside. No connection may have it open.
void move_aside(const std::filesystem::path &file, const Error &damage,
                const std::function<void(const std::string &)> &say);

} // namespace vantro::service::catalogue

#endif
