// Descriptors that strangers send, and the sockets in which they send them.
//
// The close of a descriptor may wait, and whoever made it decides for how long: a TCP socket that
// lingers over unsent bytes, a file on a file system that its sender runs, a local socket in whose
// queue lie others. So a thread that serves avoids closing one:
//  - If the kernel has SO_PASSRIGHTS, a socket on which no descriptor is expected takes none.
//  - Lingering is turned off before a close.
//  - What may have been left in the queue of a client's socket is taken out before the socket is
//    closed, since the kernel would close it at that moment.
//  - If a service has lent a thread (ipc_lend_closing_thread()), that thread does all of this.
#ifndef VANTRO_PLATFORM_LINUX_MESSAGES_FOREIGN_FD_H
#define VANTRO_PLATFORM_LINUX_MESSAGES_FOREIGN_FD_H

#include "platform/linux/base/unique_fd.h"

namespace vantro::platform {

// Closes a descriptor that a stranger sent.
void close_foreign(int fd);
// Shuts down a socket that a client sends on, at once, and closes it.
void close_client_socket(int fd);

using ForeignFd = OwnedFd<close_foreign>;
using ClientSocket = OwnedFd<close_client_socket>;

// Refuses descriptors sent to a socket and to those that it accepts, if the kernel can.
void refuse_descriptors(int socket);

// Wakes the threads that were lent, one of whose channels has been destroyed.
void wake_lent_threads();

// The most descriptors that one packet can carry. With room for so many, the kernel never closes
// any for want of room.
constexpr int packet_descriptors_max = 253;

} // namespace vantro::platform

#endif
