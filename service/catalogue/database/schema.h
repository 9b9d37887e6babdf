// The catalogue's file: its tables, how it is opened, and what happens to one that is no good.
#ifndef VANTRO_SERVICE_CATALOGUE_DATABASE_SCHEMA_H
#define VANTRO_SERVICE_CATALOGUE_DATABASE_SCHEMA_H

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "service/catalogue/database/database.h"

namespace vantro::service::catalogue {

// Opens the file for writing, or makes it. One that is damaged or of another version is moved
// aside first, under a name that nothing has, and `say` is told so in one line. Throws
// DatabaseError where even a new file cannot be had.
std::unique_ptr<Database> open_catalogue_file(const std::filesystem::path &file,
                                              const std::function<void(const std::string &)> &say);

// The same for a file that turned out to be damaged while it was in use; nobody may have it open.
void move_aside(const std::filesystem::path &file, const std::string &why,
                const std::function<void(const std::string &)> &say);

} // namespace vantro::service::catalogue

#endif
