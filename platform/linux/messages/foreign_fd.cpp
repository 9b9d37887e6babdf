#include "platform/linux/messages/foreign_fd.h"

#include <pthread.h>
#include <sys/socket.h>

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

enum class Kind { foreign, client_socket };

// No other lock is taken while this one is held.
constinit Mutex closing_lock;

// What the lent threads are to close.
struct ClosingQueue {
    struct Entry {
        Kind kind;
        int fd;
    };
    Condition changed;
    std::vector<Entry> waiting GUARDED_BY(closing_lock);
    int lent_threads GUARDED_BY(closing_lock) = 0;

    static ClosingQueue &instance();
};

void before_fork() ACQUIRE(closing_lock) {
    closing_lock.lock();
}
void after_fork_in_parent() RELEASE(closing_lock) {
    closing_lock.unlock();
}
// The copies stay open: a child has no lent thread, and a close could hold it up.
void after_fork_in_child() RELEASE(closing_lock) {
    ClosingQueue &queue = ClosingQueue::instance();
    queue.waiting.clear();
    queue.lent_threads = 0;
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
bool hand_over(Kind kind, int fd) {
    ClosingQueue &queue = ClosingQueue::instance();
    const MutexLock guard(closing_lock);
    if (queue.lent_threads == 0) {
        return false;
    }
    try {
        queue.waiting.push_back({kind, fd});
    } catch (const std::bad_alloc &) {
        return false;
    }
    queue.changed.notify_one();
    return true;
}

void close_now(int fd) {
    const struct linger none = {};
    ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &none, sizeof none); // fails if it is no socket
    close_descriptor(fd);
}

// Takes the descriptors out of a socket's queue.
void drain(int socket) {
    // With this option every packet brings a control message, so that a packet without bytes is
    // told from the end of the queue.
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
        message.msg_controllen = sizeof control.bytes;
        if (::recvmsg(socket, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC) < 0 ||
            message.msg_controllen == 0) {
            return;
        }
        for_each_descriptor(message, close_now);
    }
}

void drain_and_close(int socket) {
    drain(socket);
    close_now(socket);
}

void close_entry(const ClosingQueue::Entry &entry) {
    entry.kind == Kind::foreign ? close_now(entry.fd) : drain_and_close(entry.fd);
}

} // namespace

void close_foreign(int fd) {
    if (fd >= 0 && !hand_over(Kind::foreign, fd)) {
        const KeepErrno keep;
        close_now(fd);
    }
}

void close_client_socket(int fd) {
    if (fd < 0) {
        return;
    }
    const KeepErrno keep;
    ::shutdown(fd, SHUT_RDWR); // the client learns it now, and sends no more
    if (!hand_over(Kind::client_socket, fd)) {
        drain_and_close(fd);
    }
}

void refuse_descriptors(int socket) {
    const int off = 0;
    ::setsockopt(socket, SOL_SOCKET, SO_PASSRIGHTS, &off, sizeof off);
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
    while (!channel->destroyed || !queue.waiting.empty()) {
        if (queue.waiting.empty()) {
            queue.changed.wait(closing_lock);
            continue;
        }
        const ClosingQueue::Entry entry = queue.waiting.back();
        queue.waiting.pop_back();
        guard.unlock();
        close_entry(entry);
        guard.lock();
    }
    --queue.lent_threads;
    return 0;
}
