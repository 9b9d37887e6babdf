// The state of one folder during its comparison.
#ifndef VANTRO_SERVICE_CATALOGUE_SCAN_READING_H
#define VANTRO_SERVICE_CATALOGUE_SCAN_READING_H

#include <dirent.h>
#include <memory>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <unordered_map>
#include <vector>

#include "service/catalogue/cover.h"
#include "service/catalogue/scan/scan.h"

namespace vantro::service::catalogue {

struct Scan::Reading {
    const Folder &folder;
    DIR *directory = nullptr;
    KnownFolder known; // without the files and folders that have been seen
    // Known tracks, by their files.
    std::unordered_map<std::string, std::vector<std::string>> tracks = {};
    std::unordered_map<std::string, std::shared_ptr<const CueSheet>> sheets = {}; // likewise
    std::vector<Folder> folders = {};
    bool has_songs = false;
    FolderCover cover = {};
    // The error for which a part of the folder could not be examined.
    std::optional<Error> failure = {};

    // Keeps the catalogue's entry of the file.
    void keep(const std::string &name) {
        known.files.erase(name);
        for (const std::string &track : tracks[name]) {
            known.files.erase(track);
        }
    }

    FileName named(const std::string &name, int32_t source) const {
        return {source, folder.path, name};
    }
};

inline FileStamp stamp_of(const struct stat &status) {
    return {status.st_mtim.tv_sec * int64_t{1'000'000'000} + status.st_mtim.tv_nsec,
            status.st_size};
}

} // namespace vantro::service::catalogue

#endif
