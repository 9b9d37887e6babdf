#ifndef VANTRO_PLATFORM_LINUX_RUNTIME_RUNTIME_DIRECTORY_H
#define VANTRO_PLATFORM_LINUX_RUNTIME_RUNTIME_DIRECTORY_H

#include <cerrno>
#include <string>
#include <string_view>

#include "platform/linux/base/unique_fd.h"

namespace vantro::platform {

// The directory of a name or path, and its last part.
struct Place {
    UniqueFd directory;
    std::string name;

    explicit operator bool() const { return static_cast<bool>(directory); }
};

enum class RuntimeRoot {
    user,   // the user's own runtime directory
    system, // the system's
    own     // where this process publishes: the user's directory if there is one, else the system's
};

// Finds the directory of a relative path below a runtime directory, without following a link.
// @return an empty place with errno: ENOENT, ENAMETOOLONG, or the host's.
Place find_place(std::string_view path, RuntimeRoot root);

// The same for publishing: makes the directories that are missing.
Place make_place(std::string_view path);

// Opens a path in the user's directory; if it does not exist there, or its process has died, opens
// it in the system's. `open` takes the root; its result is empty, with errno, if it fails. If both
// fail, errno is that of the user's directory.
template <typename Open>
auto open_in_either(Open open) {
    auto opened = open(RuntimeRoot::user);
    if (!opened && (errno == ENOENT || errno == ECONNREFUSED)) {
        const int error = errno;
        opened = open(RuntimeRoot::system);
        if (!opened && errno == ENOENT) {
            errno = error;
        }
    }
    return opened;
}

// The deepest existing directory on the way to a relative path: at least the parent of the runtime
// directory. Empty if that does not exist either.
struct DeepestDirectory {
    UniqueFd directory;
    UniqueFd parent; // empty if the directory is that parent
};
DeepestDirectory deepest_directory(std::string_view path, RuntimeRoot root);

// The path that names a descriptor, for calls that take paths only.
std::string descriptor_path(int fd, std::string_view name = {});

} // namespace vantro::platform

#endif
