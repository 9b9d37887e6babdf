// A folder of music, opened below its directory.
#ifndef VANTRO_SERVICE_CATALOGUE_SCAN_FOLDER_H
#define VANTRO_SERVICE_CATALOGUE_SCAN_FOLDER_H

#include <dirent.h>
#include <memory>
#include <string>
#include <vector>

#include "service/catalogue/files/music_root.h"

namespace vantro::service::catalogue {

struct FolderCloser {
    void operator()(DIR *directory) const { closedir(directory); }
};

using Directory = std::unique_ptr<DIR, FolderCloser>;

// Null, and errno, where the folder cannot be opened.
Directory open_folder(const MusicRoot &root, const std::string &path);

// The entries of a directory in the order of their bytes, so that the same files make the same
// collection on every file system. Without those that could not be read where `error` is not 0.
std::vector<std::string> names_in(DIR *directory, int &error);

// False where the directory cannot be read.
bool is_empty(const MusicRoot &root);

} // namespace vantro::service::catalogue

#endif
