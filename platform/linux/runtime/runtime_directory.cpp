#include "platform/linux/runtime/runtime_directory.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <cerrno>

#include <vantro/platform/limits.h>

namespace vantro::platform {

namespace {

constexpr const char *system_directory = "/run/vantro";
constexpr mode_t directory_mode = 0755;
constexpr int directory_flags = O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// The user's runtime directory, if it may be trusted: only the user owns it and may write it. Else
// ENOENT.
UniqueFd open_user_runtime() {
    const char *path = secure_getenv("XDG_RUNTIME_DIR");
    if (!path || path[0] != '/') {
        errno = ENOENT;
        return UniqueFd();
    }
    UniqueFd directory(::open(path, O_PATH | O_DIRECTORY | O_CLOEXEC));
    struct stat status;
    if (directory && (::fstat(directory.get(), &status) != 0 || status.st_uid != ::geteuid() ||
                      (status.st_mode & (S_IWGRP | S_IWOTH)))) {
        directory.reset();
        errno = ENOENT;
    }
    return directory;
}

// Opens one part below a directory. If it is missing and `make` is set, makes it first.
UniqueFd open_part(int parent, const std::string &part, bool make) {
    UniqueFd found(::openat(parent, part.c_str(), O_PATH | directory_flags));
    if (found || errno != ENOENT || !make) {
        return found;
    }
    if (::mkdirat(parent, part.c_str(), directory_mode) == 0) {
        // Sets the mode whatever the umask is.
        if (::fchmodat(parent, part.c_str(), directory_mode, 0) != 0) {
            return UniqueFd();
        }
    } else if (errno != EEXIST) {
        return UniqueFd();
    }
    return UniqueFd(::openat(parent, part.c_str(), O_PATH | directory_flags));
}

UniqueFd open_system_root(bool make) {
    UniqueFd root(::open(system_directory, O_PATH | directory_flags));
    if (!root && errno == ENOENT && make) {
        const UniqueFd run(::open("/run", O_PATH | directory_flags));
        return run ? open_part(run.get(), "vantro", true) : UniqueFd();
    }
    return root;
}

UniqueFd open_root(RuntimeRoot root, bool make) {
    if (root == RuntimeRoot::system) {
        return open_system_root(make);
    }
    const UniqueFd user = open_user_runtime();
    if (user) {
        return open_part(user.get(), "vantro", make);
    }
    if (errno == EMFILE || errno == ENFILE || errno == ENOMEM) {
        return UniqueFd(); // The name may exist, so the system's directory must not be tried.
    }
    errno = ENOENT;
    return root == RuntimeRoot::own ? open_system_root(make) : UniqueFd();
}

// A link or a file in place of a directory is reported as a missing name.
void tell_as_missing() {
    if (errno == ENOTDIR || errno == ELOOP) {
        errno = ENOENT;
    }
}

Place walk(std::string_view path, RuntimeRoot root, bool make) {
    if (path.size() > PLATFORM_PATH_MAX) {
        errno = ENAMETOOLONG;
        return {};
    }
    UniqueFd directory;
    for (;;) {
        const size_t slash = path.find('/');
        const std::string part(path.substr(0, slash));
        if (part.empty() || part == "." || part == ".." || part.find('\0') != std::string::npos) {
            errno = ENOENT;
            return {};
        }
        if (part.size() > PLATFORM_NAME_MAX) {
            errno = ENAMETOOLONG;
            return {};
        }
        if (!directory) {
            directory = open_root(root, make);
            if (!directory) {
                tell_as_missing();
                return {};
            }
        }
        if (slash == std::string_view::npos) {
            return {std::move(directory), part};
        }
        directory = open_part(directory.get(), part, make);
        if (!directory) {
            tell_as_missing();
            return {};
        }
        path.remove_prefix(slash + 1);
    }
}

} // namespace

Place find_place(std::string_view path, RuntimeRoot root) {
    return walk(path, root, false);
}

DeepestDirectory deepest_directory(std::string_view path, RuntimeRoot root) {
    DeepestDirectory deepest;
    deepest.directory = root == RuntimeRoot::system
                            ? UniqueFd(::open("/run", O_PATH | directory_flags))
                            : open_user_runtime();
    UniqueFd next = open_root(root, false);
    while (deepest.directory && next) {
        deepest.parent = std::move(deepest.directory);
        deepest.directory = std::move(next);
        const size_t slash = path.find('/');
        if (slash == std::string_view::npos) {
            break; // the rest is the file's name
        }
        next = open_part(deepest.directory.get(), std::string(path.substr(0, slash)), false);
        path.remove_prefix(slash + 1);
    }
    return deepest;
}

Place make_place(std::string_view path) {
    return walk(path, RuntimeRoot::own, true);
}

std::string descriptor_path(int fd, std::string_view name) {
    std::string path = "/proc/self/fd/" + std::to_string(fd);
    if (!name.empty()) {
        path.append("/").append(name);
    }
    return path;
}

} // namespace vantro::platform
