#include "service/catalogue/files/artwork_folder.h"

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include <fmt/format.h>

#include "service/catalogue/files/picture_head.h"
#include "service/catalogue/text/digest.h"
#include "service/error.h"

namespace vantro::service::catalogue {

namespace {

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
    throw Error::failed(Error::Origin::state, error, "cannot store a cover");
}

// A service that is not user 0 cannot give a file to another user; such a file is readable as far
// as the bits for others allow.
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

// Foreign files in the directory are not touched.
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

ArtworkFolder::ArtworkFolder(const std::filesystem::path &directory, const ArtworkReaders &readers)
    : directory_(directory), readers_(readers),
      uri_("file://" + escaped(directory.native()) + "/") {
    std::filesystem::create_directories(directory_);
    chmod(directory_.c_str(), directory_mode(readers));
    // An earlier run may have made the covers readable for others.
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
    // Written under another name and renamed: two threads may find the same cover at the same time,
    // and a reader must never see a part of a picture.
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
