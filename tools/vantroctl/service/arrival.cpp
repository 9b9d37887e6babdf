#include "tools/vantroctl/service/arrival.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vantro::ctl {
namespace {

constexpr int pause_ms_min = 50;
constexpr int pause_ms_max = 1000;

constexpr uint32_t appearing = IN_CREATE | IN_MOVED_TO | IN_ATTRIB | IN_ONLYDIR;

// Whether an event concerns a part of the path to a service. Most events do not, for example in
// /run.
bool concerns(const inotify_event &event) {
    if (event.len == 0) {
        return (event.mask & IN_Q_OVERFLOW) != 0;
    }
    for (const char *name : {"vantro", "sys", "name", "csm", "vantro.sys", "default"}) {
        if (std::strcmp(event.name, name) == 0) {
            return true;
        }
    }
    return false;
}

} // namespace

const char *const service_places[2] = {"sys/csm/vantro.sys/default", "name/csm/vantro.sys/default"};

std::vector<RuntimeRoot> runtime_roots() {
    std::vector<RuntimeRoot> roots;
    const char *const own = secure_getenv("XDG_RUNTIME_DIR");
    struct stat status = {};
    // A directory that other users may write is not trusted.
    if (own && own[0] == '/' && stat(own, &status) == 0 && status.st_uid == geteuid() &&
        (status.st_mode & (S_IWGRP | S_IWOTH)) == 0) {
        roots.push_back({own, true});
    }
    roots.push_back({"/run", false});
    return roots;
}

Arrival::Arrival() : descriptor_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {}

Arrival::~Arrival() {
    if (descriptor_ >= 0) {
        close(descriptor_);
    }
}

bool Arrival::take_events() {
    bool concerned = false;
    alignas(inotify_event) char events[4096];
    for (ssize_t size = 0; (size = read(descriptor_, events, sizeof events)) > 0;) {
        for (const char *at = events; at < events + size;) {
            const auto *event = reinterpret_cast<const inotify_event *>(at);
            concerned = concerned || concerns(*event);
            at += sizeof *event + event->len;
        }
    }
    return concerned;
}

void Arrival::prepare() {
    if (descriptor_ < 0) {
        return;
    }
    if (take_events()) {
        pause_ms_ = 0; // Starts a row of looks.
    }
    // From the top down, so that a directory that appears meanwhile is noticed by its parent.
    for (const RuntimeRoot &root : runtime_roots()) {
        inotify_add_watch(descriptor_, root.parent.c_str(), appearing);
        for (const char *place : service_places) {
            const std::string path = root.parent + "/vantro/" + place;
            for (size_t end = root.parent.size() + 1; (end = path.find('/', end)) != path.npos;
                 ++end) {
                inotify_add_watch(descriptor_, path.substr(0, end).c_str(), appearing);
            }
        }
    }
}

void Arrival::failed(bool absent) {
    const bool told = descriptor_ >= 0 && absent;
    if (told && (pause_ms_ < 0 || pause_ms_ >= pause_ms_max)) {
        pause_ms_ = -1;
    } else {
        pause_ms_ = std::clamp(pause_ms_ * 2, pause_ms_min, pause_ms_max);
    }
}

} // namespace vantro::ctl
