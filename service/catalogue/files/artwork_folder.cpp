#include "service/catalogue/files/artwork_folder.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include <fmt/format.h>

#include "service/catalogue/text/digest.h"

namespace vantro::service::catalogue {

namespace {

uint32_t big_endian(std::string_view bytes, size_t at, size_t count) {
    uint32_t number = 0;
    for (size_t i = 0; i < count; ++i) {
        number = number << 8 | static_cast<unsigned char>(bytes[at + i]);
    }
    return number;
}

// A picture of more than a million pixels a side is a lie.
constexpr uint32_t side_max = 1'000'000;

std::optional<PictureHead> sized(const char *ending, uint32_t width, uint32_t height) {
    if (width == 0 || height == 0 || width > side_max || height > side_max) {
        return std::nullopt;
    }
    return PictureHead{ending, static_cast<int32_t>(width), static_cast<int32_t>(height)};
}

// Segments follow each other up to the one that states the size: C0 to CF but for three that share
// its range.
std::optional<PictureHead> jpeg_head(std::string_view bytes) {
    size_t at = 2;
    while (at + 9 <= bytes.size()) {
        if (bytes[at] != '\xFF') {
            return std::nullopt;
        }
        const auto marker = static_cast<unsigned char>(bytes[at + 1]);
        if (marker == 0xFF) { // padding
            ++at;
            continue;
        }
        if (marker == 0x01 || (marker >= 0xD0 && marker <= 0xD8)) { // these stand alone
            at += 2;
            continue;
        }
        if (marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 &&
            marker != 0xCC) {
            return sized("jpg", big_endian(bytes, at + 7, 2), big_endian(bytes, at + 5, 2));
        }
        const uint32_t length = big_endian(bytes, at + 2, 2);
        if (length < 2 || marker == 0xD9 || marker == 0xDA) {
            return std::nullopt;
        }
        at += 2 + length;
    }
    return std::nullopt;
}

std::string escaped(std::string_view path) {
    static constexpr std::string_view plain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                              "0123456789-._~/";
    std::string text;
    for (const char c : path) {
        if (plain.find(c) != std::string_view::npos) {
            text += c;
        } else {
            text += fmt::format("%{:02X}", static_cast<unsigned char>(c));
        }
    }
    return text;
}

[[noreturn]] void cannot_keep(int error) {
    throw std::system_error(error, std::generic_category(), "a cover cannot be kept");
}

// Where a file cannot be given to another user, because the service is not user 0, others read it
// as far as the bits for others go.
void admit(int file, const ArtworkReaders &readers) {
    if (readers.uid != ArtworkReaders::service_own || readers.gid != ArtworkReaders::service_own) {
        [[maybe_unused]] const int given = fchown(file, readers.uid, readers.gid);
    }
    fchmod(file, (readers.mode & 0444) | 0200 | S_IRUSR);
}

void write_all(const std::filesystem::path &file, std::string_view bytes,
               const ArtworkReaders &readers) {
    const int descriptor =
        open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (descriptor < 0) {
        cannot_keep(errno);
    }
    admit(descriptor, readers);
    int failure = 0;
    while (!bytes.empty() && failure == 0) {
        const ssize_t count = write(descriptor, bytes.data(), bytes.size());
        if (count >= 0) {
            bytes.remove_prefix(static_cast<size_t>(count));
        } else if (errno != EINTR) {
            failure = errno;
        }
    }
    if (close(descriptor) != 0 && failure == 0) {
        failure = errno;
    }
    if (failure != 0) {
        unlink(file.c_str());
        cannot_keep(failure);
    }
}

// Whatever else a person put into the directory stays there.
bool is_ours(std::string_view name) {
    const size_t digest_end = name.find_first_not_of("0123456789abcdef");
    if (digest_end == 64) {
        return name.substr(64) == ".jpg" || name.substr(64) == ".png";
    }
    return name.size() > 6 && name.front() == '.' && name.substr(name.size() - 5) == ".part";
}

} // namespace

uint32_t directory_mode(const ArtworkReaders &readers) {
    const bool others = (readers.mode & 0044) != 0 || readers.uid != ArtworkReaders::service_own;
    return others ? 0711 : 0700;
}

std::optional<PictureHead> picture_head(std::string_view bytes) {
    constexpr std::string_view png("\x89PNG\r\n\x1A\n\0\0\0\x0DIHDR", 16);
    if (bytes.substr(0, png.size()) == png && bytes.size() >= 24) {
        return sized("png", big_endian(bytes, 16, 4), big_endian(bytes, 20, 4));
    }
    if (bytes.substr(0, 2) == "\xFF\xD8") {
        return jpeg_head(bytes);
    }
    return std::nullopt;
}

std::optional<int> picture_rank(std::string_view name) {
    std::string lower(name);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    const size_t dot = std::min(lower.rfind('.'), lower.size());
    const std::string ending = lower.substr(dot);
    if (ending != ".jpg" && ending != ".jpeg" && ending != ".png") {
        return std::nullopt;
    }
    int rank = 0;
    for (const char *stem : {"cover", "folder", "front", "albumcover", "album"}) {
        if (lower.compare(0, dot, stem) == 0) {
            return rank;
        }
        ++rank;
    }
    return plain_picture_rank;
}

ArtworkFolder::ArtworkFolder(const std::filesystem::path &directory, const ArtworkReaders &readers)
    : directory_(directory), readers_(readers),
      uri_("file://" + escaped(directory.native()) + "/") {
    std::filesystem::create_directories(directory_);
    chmod(directory_.c_str(), directory_mode(readers));
    // Covers of an earlier run may have been for others.
    std::error_code error;
    std::filesystem::directory_iterator entry(directory_, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        if (!is_ours(entry->path().filename().native())) {
            continue;
        }
        const int file =
            open(entry->path().c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
        if (file >= 0) {
            admit(file, readers_);
            close(file);
        }
    }
}

std::optional<Artwork> ArtworkFolder::keep(std::string_view bytes) const {
    if (bytes.size() > picture_bytes_max) {
        return std::nullopt;
    }
    const std::optional<PictureHead> head = picture_head(bytes);
    if (!head) {
        return std::nullopt;
    }
    Artwork artwork{fmt::format("{}.{}", digest(bytes), head->ending), head->width, head->height};
    const std::filesystem::path file = directory_ / artwork.file;
    struct stat status = {};
    if (lstat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
        static_cast<size_t>(status.st_size) == bytes.size()) {
        return artwork;
    }
    // Two threads may find the same cover at once; a reader never sees half of one.
    static std::atomic<unsigned> number;
    const std::filesystem::path part = directory_ / fmt::format(".{}.part", ++number);
    write_all(part, bytes, readers_);
    if (rename(part.c_str(), file.c_str()) != 0) {
        const int error = errno;
        unlink(part.c_str());
        cannot_keep(error);
    }
    return artwork;
}

std::string ArtworkFolder::uri(std::string_view file) const {
    return uri_ + std::string(file);
}

void ArtworkFolder::sweep(const std::function<bool(const std::string &file)> &wanted) const {
    std::error_code error;
    std::filesystem::directory_iterator entry(directory_, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        const std::string name = entry->path().filename().native();
        if (is_ours(name) && !wanted(name)) {
            unlink(entry->path().c_str());
        }
    }
}

} // namespace vantro::service::catalogue
