#include "service/catalogue/files/music_root.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <string_view>
#include <sys/syscall.h>
#include <unistd.h>

#include <linux/openat2.h>

#include "service/catalogue/text/utf8.h"
#include "service/error.h"

namespace vantro::service::catalogue {

namespace {

constexpr int file_flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

struct Freer {
    void operator()(char *text) const { std::free(text); }
};
using ResolvedPath = std::unique_ptr<char, Freer>;

} // namespace

int open_below(int directory, const std::string &path, int flags) {
    open_how how = {};
    how.flags = static_cast<unsigned>(flags);
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS;
    const char *const relative = path.empty() ? "." : path.c_str();
    const long opened = syscall(SYS_openat2, directory, relative, &how, sizeof how);
    // EAGAIN: a directory was moved meanwhile, and the kernel cannot tell whether the path stays
    // below.
    if (opened >= 0 || (errno != ENOSYS && errno != EPERM && errno != EAGAIN)) {
        return static_cast<int>(opened);
    }
    return walk_below(directory, path, flags);
}

int walk_below(int directory, const std::string &path, int flags) {
    std::string_view rest = path;
    int at = directory;
    for (;;) {
        const std::string piece(rest.substr(0, rest.find('/')));
        rest.remove_prefix(std::min(rest.size(), piece.size() + 1));
        const bool last = rest.empty();
        int next = -1;
        if (piece == "..") {
            errno = EXDEV;
        } else {
            next =
                openat(at, piece.empty() ? "." : piece.c_str(),
                       last ? flags | O_NOFOLLOW : O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        }
        if (at != directory) {
            const int error = errno;
            close(at);
            errno = error;
        }
        if (last || next < 0) {
            return next;
        }
        at = next;
    }
}

MusicRoot::MusicRoot(const std::string &path)
    : path_(path), descriptor_(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (descriptor_ < 0) {
        throw Error::failed(Error::Origin::music, errno, loggable(path) + " cannot be opened");
    }
}

MusicRoot::~MusicRoot() {
    close(descriptor_);
}

int MusicRoot::open(const std::string &path, int flags) const {
    return open_below(descriptor_, path, flags);
}

int MusicRoot::open_file(const std::string &path) const {
    const int file = open(path, file_flags);
    if (file >= 0 || errno != ELOOP) {
        return file;
    }
    const std::optional<std::string> target = target_of(path);
    return target ? open(*target, file_flags) : -1;
}

std::optional<std::string> MusicRoot::target_of(const std::string &path) const {
    const ResolvedPath real(realpath((path_ + '/' + path).c_str(), nullptr));
    const ResolvedPath real_root(real ? realpath(path_.c_str(), nullptr) : nullptr);
    if (!real || !real_root) {
        return std::nullopt;
    }
    const std::string_view target = real.get();
    const std::string_view root = real_root.get();
    if (target == root) {
        return "";
    }
    const std::string inside = root == "/" ? "/" : std::string(root) + '/';
    if (target.substr(0, inside.size()) != inside) {
        errno = EXDEV;
        return std::nullopt;
    }
    return std::string(target.substr(inside.size()));
}

} // namespace vantro::service::catalogue
