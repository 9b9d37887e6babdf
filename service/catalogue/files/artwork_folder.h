// The directory of covers, which holds each picture once.
#ifndef VANTRO_SERVICE_CATALOGUE_FILES_ARTWORK_FOLDER_H
#define VANTRO_SERVICE_CATALOGUE_FILES_ARTWORK_FOLDER_H

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace vantro::service::catalogue {

// Largest picture that is accepted as a cover, in bytes.
inline constexpr size_t picture_bytes_max = 16 * 1024 * 1024;

// A cover in the artwork directory.
struct Artwork {
    std::string file; // its name there, digest and ending
    int32_t width = 0;
    int32_t height = 0;
};

// Who may read the covers besides the service: clients get the covers' URIs. Only the bits 0400,
// 0040 and 0004 of `mode` count, for the user, the group and others; `service_own` stands for the
// service's user or group.
struct ArtworkReaders {
    static constexpr uint32_t service_own = UINT32_MAX;
    uint32_t uid = service_own;
    uint32_t gid = service_own;
    uint32_t mode = 0444;
};

// The permission bits of a directory above the covers: readers can pass through it, not list it.
uint32_t directory_mode(const ArtworkReaders &readers);

class ArtworkFolder {
  public:
    // Makes the directory if it is missing, and makes its covers readable for the readers. A reader
    // can open a cover whose URI it has; only the service can list the directory.
    ArtworkFolder(const std::filesystem::path &directory, const ArtworkReaders &readers);

    // Stores a picture. Returns nothing if the bytes are not a picture. Throws an Error if the
    // picture cannot be written, for example on a full disk. Any thread.
    std::optional<Artwork> keep(std::string_view bytes) const;

    std::string uri(std::string_view file) const;

    // Deletes every file for which `wanted` is false.
    void sweep(const std::function<bool(const std::string &file)> &wanted) const;

  private:
    const std::filesystem::path directory_;
    const ArtworkReaders readers_;
    std::string uri_; // of the directory, with a slash at the end
};

} // namespace vantro::service::catalogue

#endif
