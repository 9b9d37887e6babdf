#ifndef VANTRO_PLATFORM_LINUX_RUNTIME_PUBLISHED_NAME_H
#define VANTRO_PLATFORM_LINUX_RUNTIME_PUBLISHED_NAME_H

#include <string>
#include <string_view>

#include "platform/linux/base/unique_fd.h"

namespace vantro::platform {

// A name in the runtime directory that this process owns. A lock on "NAME.lock", which ends with
// the process, shows whether the owner is alive: a probe of the socket would fail between its bind
// and its listen.
class PublishedName {
  public:
    PublishedName() = default;
    ~PublishedName() { withdraw(); }
    PublishedName(const PublishedName &) = delete;
    PublishedName &operator=(const PublishedName &) = delete;

    // Takes the name and makes a listening socket under it. @return the socket, or an empty one
    // with errno: EADDRINUSE when a live process holds the name.
    UniqueFd publish(std::string_view path);

    // Removes the published name, while the lock is still held.
    void withdraw();

    // In a child of fork: releases the lock and keeps the parent's name.
    void forget();

  private:
    UniqueFd directory_;
    UniqueFd lock_;
    std::string name_; // empty if only the lock was taken
    std::string lock_name_;
};

// Takes the lock on a file, which is made if it is missing. @return the locked file, locked until
// it is closed, or an empty one with errno: EADDRINUSE if a live process holds the lock.
UniqueFd take_lock(int directory, const std::string &name);

// Connects to the socket of a name. @return an empty one with errno.
UniqueFd connect_to_name(std::string_view path);

} // namespace vantro::platform

#endif
