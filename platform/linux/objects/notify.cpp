// Notification, by descriptor.
#include <vantro/platform/notify.h>

#include <signal.h>

#include <cerrno>

#include "platform/linux/objects/object_reader.h"
#include "platform/portable/guards.h"

using namespace vantro::platform;

int notify_arm(int descriptor, int action, int conditions, const struct ipc_event *event) {
    ObjectReader *const reader = find_reader(descriptor);
    if (!reader) {
        return fail(EBADF);
    }
    if (action != NOTIFY_TEST_AND_ARM || conditions != NOTIFY_INPUT || !event ||
        event->kind != IPC_EVENT_SIGNAL_THREAD || event->connection < SIGRTMIN ||
        event->connection > SIGRTMAX) {
        return fail(EINVAL);
    }
    return reader->arm(event->connection);
}

int notify_disarm(int descriptor) {
    ObjectReader *const reader = find_reader(descriptor);
    if (!reader) {
        return fail(EBADF);
    }
    reader->disarm();
    return 0;
}

int notify_wait(int descriptor, int timeout_ms) {
    ObjectReader *const reader = find_reader(descriptor);
    return reader ? reader->wait(timeout_ms) : fail(EBADF);
}

int notify_wake(int descriptor) {
    ObjectReader *const reader = find_reader(descriptor);
    if (!reader) {
        return fail(EBADF);
    }
    const KeepErrno keep;
    reader->wake();
    return 0;
}

int notify_poll_descriptor(int descriptor) {
    ObjectReader *const reader = find_reader(descriptor);
    return reader ? reader->poll_descriptor() : fail(EBADF);
}

int notify_reopen(int descriptor) {
    ObjectReader *const reader = find_reader(descriptor);
    return reader ? reader->reopen() : fail(EBADF);
}

int notify_settle(int descriptor) {
    ObjectReader *const reader = find_reader(descriptor);
    return reader ? reader->settle() : fail(EBADF);
}
