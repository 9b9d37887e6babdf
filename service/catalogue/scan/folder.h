// Opening and listing folders of music below their directory.
#ifndef VANTRO_SERVICE_CATALOGUE_SCAN_FOLDER_H
#define VANTRO_SERVICE_CATALOGUE_SCAN_FOLDER_H

#include <dirent.h>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "service/catalogue/files/music_root.h"
#include "service/error.h"

namespace vantro::service::catalogue {

struct FolderCloser {
    void operator()(DIR *directory) const { closedir(directory); }
};

using Directory = std::unique_ptr<DIR, FolderCloser>;

// Null, and errno, if the folder cannot be opened.
Directory open_folder(const MusicRoot &root, const std::string &path);

// Appends the entries of a directory in the order of their bytes, so that the same files make the
// same catalogue on every file system. If it fails, appends those that could be read.
std::optional<Error> list(DIR *directory, std::vector<std::string> &names);

// False if the directory cannot be read.
bool is_empty(const MusicRoot &root);

} // namespace vantro::service::catalogue

#endif
