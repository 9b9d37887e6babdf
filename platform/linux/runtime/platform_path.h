#ifndef VANTRO_PLATFORM_LINUX_RUNTIME_PLATFORM_PATH_H
#define VANTRO_PLATFORM_LINUX_RUNTIME_PLATFORM_PATH_H

#include <string_view>

namespace vantro::platform {

// Whether a path is a platform path. If so, `relative` receives the path below the runtime
// directory.
inline bool is_platform_path(std::string_view path, std::string_view &relative) {
    relative = path.substr(path.empty() ? 0 : 1);
    return path.starts_with("/sys/") || path.starts_with("/kivo/") || path == "/dev/grantor";
}

} // namespace vantro::platform

#endif
