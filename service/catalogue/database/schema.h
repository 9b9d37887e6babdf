// The catalogue's file: its tables, how it is opened, and what happens to a damaged one.
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

// Opens the file for writing, or makes it. A file that find_damage() finds damaged, or that has
// another version, is first moved aside to a name that no file has; `say` gets one line about it.
// Throws an Error if the file cannot be read or a new one cannot be made.
std::unique_ptr<Database> open_catalogue_file(const std::filesystem::path &file,
                                              const std::function<void(const std::string &)> &say);

// Opens the file once more and checks all of it. Returns what is wrong with it, if anything is. If
// the check itself fails, as when a read fails, it throws an Error that is not damage. Nothing may
// write to the file meanwhile; readers may go on.
std::optional<Error> find_damage(const std::filesystem::path &file);

// Moves a damaged file aside. No connection may have it open.
void move_aside(const std::filesystem::path &file, const Error &damage,
                const std::function<void(const std::string &)> &say);

} // namespace vantro::service::catalogue

#endif
