#include "service/catalogue/scan/folder.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

namespace vantro::service::catalogue {

Directory open_folder(const MusicRoot &root, const std::string &path) {
    const int descriptor = root.open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    Directory directory(descriptor < 0 ? nullptr : fdopendir(descriptor));
    if (!directory && descriptor >= 0) {
        const int error = errno;
        close(descriptor);
        errno = error;
    }
    return directory;
}

bool is_empty(const MusicRoot &root) {
    const Directory directory = open_folder(root, "");
    std::vector<std::string> names;
    return directory && !list(directory.get(), names) && names.empty();
}

std::optional<Error> list(DIR *directory, std::vector<std::string> &names) {
    errno = 0;
    while (const dirent *entry = readdir(directory)) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") {
            names.emplace_back(name);
        }
        errno = 0;
    }
    const int error = errno;
    std::sort(names.begin(), names.end());
    return error == 0 ? std::nullopt : std::optional(Error(Error::Origin::music, error));
}

} // namespace vantro::service::catalogue
