#include "service/catalogue/scan/mounts.h"

#include <algorithm>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sstream>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <fmt/format.h>

namespace vantro::service::catalogue {

namespace {

constexpr const char *uuids = "/dev/disk/by-uuid";

struct Closer {
    void operator()(DIR *directory) const { closedir(directory); }
};
using Folder = std::unique_ptr<DIR, Closer>;

// Spaces and the like are written as three octal digits.
std::string unescaped(const std::string &text) {
    std::string plain;
    const auto octal = [](char c) { return c >= '0' && c <= '7'; };
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 3 < text.size() &&
            std::all_of(&text[i + 1], &text[i + 4], octal)) {
            plain += static_cast<char>(std::stoi(text.substr(i + 1, 3), nullptr, 8));
            i += 3;
        } else {
            plain += text[i];
        }
    }
    return plain;
}

// The UUID of the volume on a device, or "".
std::string uuid_of(const std::string &device) {
    const Folder directory(opendir(uuids));
    while (const dirent *entry = directory ? readdir(directory.get()) : nullptr) {
        struct stat status = {};
        if (fstatat(dirfd(directory.get()), entry->d_name, &status, 0) == 0 &&
            S_ISBLK(status.st_mode) &&
            fmt::format("{}:{}", major(status.st_rdev), minor(status.st_rdev)) == device) {
            return entry->d_name;
        }
    }
    return "";
}

std::string key_of(const std::string &path, const Mount *mount) {
    if (mount) {
        const std::string uuid = uuid_of(mount->device);
        if (!uuid.empty()) {
            return fmt::format("volume:{}:{}", uuid, mount->root);
        }
        const std::string &source = mount->source;
        if (source.rfind("//", 0) == 0 || source.find(":/") != std::string::npos) {
            return fmt::format("share:{}:{}", source, mount->root);
        }
    }
    return "folder:" + path;
}

} // namespace

Mounts read_mounts(int mountinfo) {
    std::string text;
    char block[8192];
    lseek(mountinfo, 0, SEEK_SET);
    for (ssize_t size = 0; (size = read(mountinfo, block, sizeof block)) > 0;) {
        text.append(block, static_cast<size_t>(size));
    }
    Mounts mounts;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string skipped;
        std::string point;
        Mount mount;
        words >> skipped >> skipped >> mount.device >> mount.root >> point;
        while (words >> skipped && skipped != "-") {
        }
        if (words >> skipped >> mount.source) {
            mount.source = unescaped(mount.source);
            mounts[unescaped(point)] = mount;
        }
    }
    return mounts;
}

bool list_root(const std::string &root, const Mounts &mounts, std::vector<RootFolder> &folders) {
    const Folder directory(opendir(root.c_str()));
    while (const dirent *entry = directory ? readdir(directory.get()) : nullptr) {
        struct stat status = {};
        if (entry->d_name[0] == '.' ||
            fstatat(dirfd(directory.get()), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0 ||
            !S_ISDIR(status.st_mode)) {
            continue;
        }
        const std::string path = (root == "/" ? "" : root) + '/' + entry->d_name;
        const auto mount = mounts.find(path);
        const bool mounted = mount != mounts.end();
        folders.push_back({path, key_of(path, mounted ? &mount->second : nullptr), mounted});
    }
    std::sort(folders.begin(), folders.end(),
              [](const auto &one, const auto &other) { return one.path < other.path; });
    return directory != nullptr;
}

bool is_empty_folder(const std::string &path) {
    const Folder directory(opendir(path.c_str()));
    size_t count = 0;
    while (const dirent *entry = directory ? readdir(directory.get()) : nullptr) {
        count += std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0;
    }
    return directory && count == 0;
}

} // namespace vantro::service::catalogue
