#include "service/playlists/playlist_folder.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include <fmt/format.h>

#include "service/catalogue/text/collation.h"
#include "service/catalogue/text/utf8.h"

namespace vantro::service::playlists {

namespace {

constexpr std::string_view ending = ".m3u8";
// Hidden, so that it is not a playlist. There is one at a time.
constexpr const char *part_name = ".part";

class Descriptor {
  public:
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor() {
        if (number_ >= 0) {
            ::close(number_);
        }
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    explicit operator bool() const { return number_ >= 0; }
    int number() const { return number_; }

  private:
    const int number_;
};

Error failed(const char *what, const std::filesystem::path &path) {
    return Error::failed(Error::Origin::state, errno,
                         fmt::format("{} '{}'", what, catalogue::loggable(path.native())));
}

Descriptor open_folder(const std::filesystem::path &path) {
    return Descriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

bool sync_folder(const std::filesystem::path &path) {
    const Descriptor folder = open_folder(path);
    return folder && ::fsync(folder.number()) == 0;
}

Stamp stamp_of(const struct stat &status) {
    return {status.st_mtim.tv_sec * int64_t{1'000'000'000} + status.st_mtim.tv_nsec, status.st_size,
            status.st_ino};
}

bool write_all(int descriptor, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t now = ::write(descriptor, bytes.data(), bytes.size());
        if (now < 0 && errno != EINTR) {
            return false;
        }
        bytes.remove_prefix(static_cast<size_t>(std::max<ssize_t>(now, 0)));
    }
    return true;
}

// Without `replace`, an existing file stays, also one that appeared just now, as far as the file
// system can ensure that.
bool put_in_place(int folder, const std::string &file, bool replace) {
    if (!replace) {
        if (::renameat2(folder, part_name, folder, file.c_str(), RENAME_NOREPLACE) == 0) {
            return true;
        }
        if (errno != EINVAL && errno != ENOSYS) {
            return false;
        }
        if (::faccessat(folder, file.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0) {
            errno = EEXIST;
            return false;
        }
    }
    return ::renameat(folder, part_name, folder, file.c_str()) == 0;
}

} // namespace

bool is_playlist_name(std::string_view name) {
    const auto forbidden = [&](size_t at) {
        const auto byte = static_cast<unsigned char>(name[at]);
        const auto next = static_cast<unsigned char>(at + 1 < name.size() ? name[at + 1] : 0);
        return byte < 0x20 || byte == 0x7F || byte == '/' || (byte == 0xC2 && next < 0xA0);
    };
    for (size_t at = 0; at < name.size(); ++at) {
        if (forbidden(at)) {
            return false;
        }
    }
    return !name.empty() && name.size() <= name_max && name.front() != '.' &&
           catalogue::clean_text(name, 3 * name_max) == name;
}

Result<std::vector<PlaylistFile>> PlaylistFolder::list() const {
    const std::unique_ptr<DIR, int (*)(DIR *)> folder(::opendir(path_.c_str()), ::closedir);
    std::vector<PlaylistFile> files;
    if (!folder) {
        if (errno == ENOENT) {
            return files;
        }
        return failed("cannot read", path_);
    }
    errno = 0;
    while (const dirent *entry = ::readdir(folder.get())) {
        std::string_view name = entry->d_name;
        if (!name.ends_with(ending) ||
            !is_playlist_name(name.substr(0, name.size() - ending.size()))) {
            continue;
        }
        struct stat status = {};
        if (::fstatat(::dirfd(folder.get()), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISREG(status.st_mode)) {
            name.remove_suffix(ending.size());
            files.push_back({std::string(name), stamp_of(status)});
        }
        errno = 0;
    }
    if (errno != 0) {
        return failed("cannot read", path_);
    }
    std::vector<std::pair<std::string, size_t>> order;
    for (size_t i = 0; i < files.size(); ++i) {
        order.emplace_back(catalogue::sort_key(files[i].name) + '\0' + files[i].name, i);
    }
    std::sort(order.begin(), order.end());
    std::vector<PlaylistFile> sorted;
    for (size_t i = 0; i < std::min(order.size(), playlists_max); ++i) {
        sorted.push_back(std::move(files[order[i].second]));
    }
    return sorted;
}

std::filesystem::path PlaylistFolder::file_of(const std::string &name) const {
    return path_ / (name + std::string(ending));
}

std::optional<Stamp> PlaylistFolder::look(const std::string &name) const {
    struct stat status = {};
    if (::lstat(file_of(name).c_str(), &status) != 0) {
        return std::nullopt;
    }
    return stamp_of(status);
}

Result<std::string> PlaylistFolder::read(const std::string &name, Stamp &stamp) const {
    const std::filesystem::path path = file_of(name);
    // O_NONBLOCK: a named pipe would wait for its writer.
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    struct stat status = {};
    if (!file || ::fstat(file.number(), &status) != 0) {
        return failed("cannot read", path);
    }
    if (!S_ISREG(status.st_mode)) {
        return Error(Error::Origin::state, ENOENT);
    }
    if (status.st_size > file_bytes_max) {
        return Error(
            Error::Origin::state, EMSGSIZE,
            fmt::format("'{}' is too large for a playlist", catalogue::loggable(path.native())));
    }
    stamp = stamp_of(status);
    std::string text(static_cast<size_t>(status.st_size), '\0');
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t now = ::read(file.number(), text.data() + done, text.size() - done);
        if (now < 0 && errno != EINTR) {
            return failed("cannot read", path);
        }
        if (now == 0) {
            break; // the file has become shorter
        }
        done += static_cast<size_t>(std::max<ssize_t>(now, 0));
    }
    text.resize(done);
    return text;
}

std::optional<Error> PlaylistFolder::check_room(const std::string &name, size_t bytes,
                                                bool replace) const {
    const Result<std::vector<PlaylistFile>> files = list();
    if (!files) {
        return files.error();
    }
    size_t others = 0;
    auto total = static_cast<int64_t>(bytes);
    for (const PlaylistFile &file : *files) {
        if (file.name == name) {
            if (!replace) {
                return Error(Error::Origin::state, EEXIST);
            }
            continue;
        }
        ++others;
        total += file.stamp.size;
    }
    if (others >= playlists_max || total > folder_bytes_max) {
        return Error(Error::Origin::state, EDQUOT);
    }
    return std::nullopt;
}

std::optional<Error> PlaylistFolder::write(const std::string &name, const std::string &text,
                                           bool replace) {
    const MutexLock guard(writing_);
    if (::mkdir(path_.c_str(), 0700) == 0) {
        sync_folder(path_.parent_path());
    } else if (errno != EEXIST) {
        return failed("cannot make", path_);
    }
    const Descriptor folder = open_folder(path_);
    if (!folder) {
        return failed("cannot read", path_);
    }
    if (std::optional<Error> error = check_room(name, text.size(), replace)) {
        return error;
    }
    ::unlinkat(folder.number(), part_name, 0); // left by a service that was killed
    const auto give_up = [&](const char *what) {
        Error error = failed(what, path_ / part_name);
        ::unlinkat(folder.number(), part_name, 0); // the file itself may fill the disk
        return error;
    };
    {
        const Descriptor part(::openat(folder.number(), part_name,
                                       O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
        if (!part || !write_all(part.number(), text) || ::fsync(part.number()) != 0) {
            return give_up("cannot write");
        }
    }
    if (!put_in_place(folder.number(), file_of(name).filename().native(), replace)) {
        return give_up("cannot rename");
    }
    if (::fsync(folder.number()) != 0) {
        return failed("cannot write", path_);
    }
    return std::nullopt;
}

std::optional<Error> PlaylistFolder::remove(const std::string &name) {
    const MutexLock guard(writing_);
    const std::filesystem::path path = file_of(name);
    struct stat status = {};
    if (::lstat(path.c_str(), &status) != 0) {
        return failed("cannot remove", path);
    }
    if (!S_ISREG(status.st_mode)) {
        return Error(Error::Origin::state, ENOENT);
    }
    if (::unlink(path.c_str()) != 0 || !sync_folder(path_)) {
        return failed("cannot remove", path);
    }
    return std::nullopt;
}

} // namespace vantro::service::playlists
