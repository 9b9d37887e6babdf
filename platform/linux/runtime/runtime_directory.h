#ifndef VANTRO_PLATFORM_LINUX_RUNTIME_RUNTIME_DIRECTORY_H
#define VANTRO_PLATFORM_LINUX_RUNTIME_RUNTIME_DIRECTORY_H

#include <string>
#include <string_view>

#include "platform/linux/base/unique_fd.h"

namespace vantro::platform {

// Where a name or path is found or made: its directory, and its last part.
struct Place {
    UniqueFd directory;
    std::string name;

    explicit operator bool() const { return static_cast<bool>(directory); }
};

// Finds the directory of a relative path below the runtime directory, without following a link.
// @return an empty place with errno: ENOENT, ENAMETOOLONG, or the host's.
Place find_place(std::string_view path);

// The same for publishing: makes the directories that are missing.
Place make_place(std::string_view path);

// The path that names a descriptor, for calls that take paths only.
std::string descriptor_path(int fd, std::string_view name = {});

} // namespace vantro::platform

#endif
