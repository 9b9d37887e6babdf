// Arming and disarming, by descriptor.
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
