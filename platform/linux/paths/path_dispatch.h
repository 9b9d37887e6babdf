#ifndef VANTRO_PLATFORM_LINUX_PATHS_PATH_DISPATCH_H
#define VANTRO_PLATFORM_LINUX_PATHS_PATH_DISPATCH_H

#include <vantro/platform/names.h>
#include <vantro/platform/path.h>

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "common/locks.h"

// An attached path.
struct PathAttachment {
    int id = 0;
    const struct path_connect_funcs *connect = nullptr;
    const struct path_io_funcs *io = nullptr;
    struct path_attr *attr = nullptr;
};

// The data of a client's open of a path, which exist until the client disconnects.
struct PathOpen {
    const PathAttachment *attachment = nullptr;
    uint32_t flags = 0;
};

// One thread at a time may attach; any number of threads may handle messages.
struct path_dispatch {
    int channel = 0;
    std::vector<std::unique_ptr<global_name_attachment>> names;

    vantro::Mutex lock;
    // By id.
    std::unordered_map<int, std::unique_ptr<PathAttachment>> attachments GUARDED_BY(lock);
    std::unordered_map<int, PathOpen> opens GUARDED_BY(lock); // by connection id
};

namespace vantro::platform {

// Publishes a name, whose clients connect to a channel. @return 0, or -1 with errno.
int listen_on(int channel, const std::string &place, int attachment);

// Messages of the framework: their first 16-bit word differs from that of every other protocol.
enum PathMessageType : uint16_t { path_open = 0x100, path_read = 0x101, path_write = 0x102 };

struct PathMessage {
    uint16_t type = 0;
    uint16_t reserved = 0;
    uint32_t value = 0; // open: flags; read: bytes wanted; write: bytes that follow
};
static_assert(sizeof(PathMessage) == 8);

} // namespace vantro::platform

#endif
