#include "platform/linux/messages/foreign_fd.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/socket.h>

#include <atomic>
#include <cstring>
#include <new>
#include <vector>

#include <vantro/platform/message.h>

#include "platform/linux/base/never_destroyed.h"
#include "platform/linux/messages/server.h"
#include "platform/portable/guards.h"

#ifndef SO_PASSRIGHTS
#define SO_PASSRIGHTS 83
#endif

namespace vantro::platform {

namespace {

// No other lock is taken while this one is held.
constinit Mutex closing_lock;

// While so many descriptors wait to be closed, no more are accepted.
constexpr size_t foreign_waiting_max = 64;
constinit std::atomic<bool> too_many_wait = false; // changed with the lock held

// The descriptors that the lent threads must close.
struct ClosingQueue {
    Condition changed;
    std::vector<int> client_sockets GUARDED_BY(closing_lock);
    std::vector<int> foreign GUARDED_BY(closing_lock); // whose close may wait
    int lent_threads GUARDED_BY(closing_lock) = 0;
    int closing_foreign GUARDED_BY(closing_lock) = 0; // lent threads that close one of `foreign`

    static ClosingQueue &instance();

    bool empty() const REQUIRES(closing_lock) { return client_sockets.empty() && foreign.empty(); }
    // If several threads were lent, one of them closes only the clients' sockets, whose close does
    // not block. Otherwise a hostile client could prevent all sockets from being closed.
    bool may_close_foreign() const REQUIRES(closing_lock) {
        return lent_threads == 1 || closing_foreign < lent_threads - 1;
    }
    void note_length() REQUIRES(closing_lock) {
        too_many_wait = foreign.size() >= foreign_waiting_max;
    }
};

void before_fork() ACQUIRE(closing_lock) {
    closing_lock.lock();
}
void after_fork_in_parent() RELEASE(closing_lock) {
    closing_lock.unlock();
}
// The copies stay open: a child has no lent thread, and a close could block it.
void after_fork_in_child() RELEASE(closing_lock) {
    ClosingQueue &queue = ClosingQueue::instance();
    queue.client_sockets.clear();
    queue.foreign.clear();
    queue.note_length();
    queue.lent_threads = queue.closing_foreign = 0;
    closing_lock.unlock();
}

ClosingQueue &ClosingQueue::instance() {
    static auto *const queue = [] {
        pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
        static NeverDestroyed<ClosingQueue> instance;
        return instance.get();
    }();
    return *queue;
}

// @return false if no thread was lent, or there is no memory for the queue.
bool hand_over(std::vector<int> ClosingQueue::*list, int fd) {
    ClosingQueue &queue = ClosingQueue::instance();
    const MutexLock guard(closing_lock);
    if (queue.lent_threads == 0) {
        return false;
    }
    try {
        (queue.*list).push_back(fd);
    } catch (const std::bad_alloc &) {
        return false;
    }
    queue.note_length();
    queue.changed.notify_one();
    return true;
}

void close_now(int fd) {
    const struct linger none = {};
    ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &none, sizeof none); // fails if it is not a socket
    close_descriptor(fd);
}

// Takes the descriptors out of a socket's queue.
void drain(int socket) {
    // With this option every packet has a control message, which distinguishes a packet without
    // bytes from the end of the queue.
    const int on = 1;
    ::setsockopt(socket, SOL_SOCKET, SO_PASSCRED, &on, sizeof on);
    for (;;) {
        char byte;
        struct iovec part = {&byte, sizeof byte};
        union {
            struct cmsghdr align;
            char bytes[CMSG_SPACE(sizeof(struct ucred)) +
                       CMSG_SPACE(sizeof(int) * packet_descriptors_max)];
        } control;
        struct msghdr message = {};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control.bytes;
        message.msg_controllen =
            takes_descriptors() ? sizeof control.bytes : CMSG_SPACE(sizeof(struct ucred));
        if (::recvmsg(socket, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC) < 0 ||
            message.msg_controllen == 0) {
            return;
        }
        for_each_descriptor(message, close_foreign);
    }
}

void drain_and_close(int socket) {
    drain(socket);
    close_now(socket);
}

// Whether a descriptor is of the kind that well-behaved clients send. Its close never blocks. Only
// files in memory have seals.
bool is_memory_file(int fd) {
    return ::fcntl(fd, F_GET_SEALS) >= 0;
}

int take_last(std::vector<int> &list) {
    const int fd = list.back();
    list.pop_back();
    return fd;
}

} // namespace

void close_foreign(int fd) {
    if (fd < 0) {
        return;
    }
    const KeepErrno keep;
    if (is_memory_file(fd)) {
        close_descriptor(fd);
    } else if (!hand_over(&ClosingQueue::foreign, fd)) {
        close_now(fd);
    }
}

void close_client_socket(int fd) {
    if (fd < 0) {
        return;
    }
    const KeepErrno keep;
    ::shutdown(fd, SHUT_RDWR); // the client notices now, and sends no more
    if (!hand_over(&ClosingQueue::client_sockets, fd)) {
        drain_and_close(fd);
    }
}

void refuse_descriptors(int socket) {
    const int off = 0;
    ::setsockopt(socket, SOL_SOCKET, SO_PASSRIGHTS, &off, sizeof off);
}

bool takes_descriptors() {
    return !too_many_wait.load(std::memory_order_relaxed);
}

void wake_lent_threads() {
    ClosingQueue &queue = ClosingQueue::instance();
    const MutexLock guard(closing_lock);
    queue.changed.notify_all();
}

} // namespace vantro::platform

using namespace vantro::platform;
using vantro::MutexLock;

int ipc_lend_closing_thread(int number) {
    const CancelDisabled no_cancel;
    const std::shared_ptr<Channel> channel = Server::instance().find_channel(number);
    if (!channel) {
        return fail(EBADF);
    }
    ClosingQueue &queue = ClosingQueue::instance();
    MutexLock guard(closing_lock);
    ++queue.lent_threads;
    while (!channel->destroyed || !queue.empty()) {
        if (!queue.client_sockets.empty()) {
            const int socket = take_last(queue.client_sockets);
            guard.unlock();
            drain_and_close(socket);
            guard.lock();
        } else if (!queue.foreign.empty() && (queue.may_close_foreign() || channel->destroyed)) {
            const int fd = take_last(queue.foreign);
            queue.note_length();
            ++queue.closing_foreign;
            guard.unlock();
            close_now(fd);
            guard.lock();
            --queue.closing_foreign;
        } else {
            queue.changed.wait(closing_lock);
        }
    }
    --queue.lent_threads;
    queue.changed.notify_all(); // another thread may now be the only lent one
    return 0;
}
