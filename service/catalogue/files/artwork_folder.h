// Where covers are kept, once each by their content.
#ifndef VANTRO_SERVICE_CATALOGUE_FILES_ARTWORK_FOLDER_H
#define VANTRO_SERVICE_CATALOGUE_FILES_ARTWORK_FOLDER_H

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace vantro::service::catalogue {

// Largest picture that is taken for a cover, in bytes.
inline constexpr size_t picture_bytes_max = 16 * 1024 * 1024;

// A cover in the artwork directory.
struct Artwork {
    std::string file; // its name there, digest and ending
    int32_t width = 0;
    int32_t height = 0;
};

// Who may read the covers besides the service: their URIs go to clients. Of `mode` the bits 0400,
// 0040 and 0004 count, which are for the user, the group and others; a user or group of
// `service_own` is the service's.
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
    // Makes the directory where it is missing, and makes its covers readable for the readers. They
    // can open a cover whose URI they have; only the service can list the directory.
    ArtworkFolder(const std::filesystem::path &directory, const ArtworkReaders &readers);

    // Keeps a picture. Returns nothing if the bytes are no picture. Throws an Error if the
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
