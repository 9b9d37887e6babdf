// Descriptors that clients send, and the sockets in which they send them.
//
// The close of a descriptor may wait as long as its maker wants: a TCP socket that lingers over
// unsent bytes, a file on a file system that its sender runs, a local socket whose queue contains
// other descriptors. So a serving thread avoids closing one:
// - If the kernel has SO_PASSRIGHTS, a socket on which no descriptor is expected accepts none.
// - Lingering is turned off before a close.
// - The queue of a client's socket is emptied before the socket is closed, since the kernel would
//   close descriptors in the queue at that moment.
// - If a service has lent a thread (ipc_lend_closing_thread()), that thread does all of this. If it
//   has lent several, one of them closes only the clients' sockets, also while the others wait.
// - If many descriptors wait to be closed, no more are accepted. The kernel then closes them inside
//   the receive. This can block too, but for a shorter time than a close (a file is not flushed).
//   Without this limit one hostile client could use all descriptors of the process.
#ifndef VANTRO_PLATFORM_LINUX_MESSAGES_FOREIGN_FD_H
#define VANTRO_PLATFORM_LINUX_MESSAGES_FOREIGN_FD_H

#include "platform/linux/base/unique_fd.h"

namespace vantro::platform {

// Closes a descriptor that a client sent.
void close_foreign(int fd);
// Shuts down a client's socket at once, and closes it.
void close_client_socket(int fd);

using ForeignFd = OwnedFd<close_foreign>;
using ClientSocket = OwnedFd<close_client_socket>;

// Refuses descriptors sent to a socket and to those that it accepts, if the kernel can.
void refuse_descriptors(int socket);

// Whether descriptors from clients are accepted now.
bool takes_descriptors();

// Wakes the lent threads, after a channel of one of them has been destroyed.
void wake_lent_threads();

// The most descriptors that one packet can carry. With room for this many, the kernel never closes
// any for lack of room.
constexpr int packet_descriptors_max = 253;

} // namespace vantro::platform

#endif
