// The catalogue's file: its tables, how it is opened, and what happens to one that is no good.
#ifndef VANTRO_SERVICE_CATALOGUE_DATABASE_SCHEMA_H
#define VANTRO_SERVICE_CATALOGUE_DATABASE_SCHEMA_H

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "service/catalogue/database/database.h"

namespace vantro::service::catalogue {

// Opens the file for writing, or makes it. A file that find_damage() finds damaged, or that is of
// another version, is moved aside first, under a name that nothing has; `say` gets one line about
// it. Throws DatabaseError where the file cannot be read or a new one cannot be made.
std::unique_ptr<Database> open_catalogue_file(const std::filesystem::path &file,
                                              const std::function<void(const std::string &)> &say);

// Opens the file once more and checks all that is in it. Returns what is wrong with it, empty where
// it is intact. Throws DatabaseError, and not a damaged one, where that cannot be told: a read that
// fails is no damage. Nobody may be writing; readers may go on.
std::string find_damage(const std::filesystem::path &file);

// Moves a damaged file aside; nobody may have it open.
void move_aside(const std::filesystem::path &file, const std::string &why,
                const std::function<void(const std::string &)> &say);

} // namespace vantro::service::catalogue

#endif
