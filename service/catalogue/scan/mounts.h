// The mounted file systems, and the folders of a media root.
#ifndef VANTRO_SERVICE_CATALOGUE_SCAN_MOUNTS_H
#define VANTRO_SERVICE_CATALOGUE_SCAN_MOUNTS_H

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace vantro::service::catalogue {

struct Mount {
    std::string device; // major:minor
    std::string root;   // the part of the file system that is mounted
    std::string source; // the kernel's name for it

    bool operator==(const Mount &) const = default;
};

// By mount point; if a mount point has several, the uppermost.
using Mounts = std::map<std::string, Mount>;

// Reads the mounts from the start of an open /proc/self/mountinfo. Empty if it cannot be read.
Mounts read_mounts(int mountinfo);

// A folder of a media root, and the key by which it is recognised when it returns: the UUID of a
// volume, the address of a network share, else the path.
struct RootFolder {
    std::string path;
    std::string key;
    bool mounted = false;
};

// The folders in a media root, without links and hidden folders. False if it cannot be read.
bool list_root(const std::string &root, const Mounts &mounts, std::vector<RootFolder> &folders);

// True if a folder can be read and is empty.
bool is_empty_folder(const std::string &path);

} // namespace vantro::service::catalogue

#endif
