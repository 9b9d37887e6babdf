// Waiting for the player to publish something, and values that applications attach to objects.
#include <pthread.h>
#include <signal.h>
#include <time.h>

#include <cerrno>

#include <vantro/platform/io.h>
#include <vantro/platform/notify.h>
#include <vantro/player.h>

#include "events/log.h"
#include "events/queue.h"

namespace vantro::events {

namespace {

constexpr int wake_signal = 57;
constexpr ipc_event sev = {IPC_EVENT_SIGNAL_THREAD, wake_signal, 0, 0, 0};

// Blocks the signals that wake a thread while one may come. The destructor runs on every way out of
// a wait, also when the thread is cancelled: it disarms and takes pending signals, since a signal
// that is left over would end the process as soon as it is unblocked.
class WakeSignals {
  public:
    explicit WakeSignals(int descriptor) : descriptor_(descriptor) {
        sigemptyset(&signals_);
        sigaddset(&signals_, wake_signal);
        // The host sends SIGIO where its queue of real-time signals is full.
        sigaddset(&signals_, SIGIO);
        pthread_sigmask(SIG_BLOCK, &signals_, &mask_);
    }
    ~WakeSignals() {
        const CancelDisabled no_cancel;
        const KeepErrno keep;
        notify_disarm(descriptor_);
        const timespec at_once{};
        while (sigtimedwait(&signals_, nullptr, &at_once) > 0) {
        }
        pthread_sigmask(SIG_SETMASK, &mask_, nullptr);
    }
    WakeSignals(const WakeSignals &) = delete;
    WakeSignals &operator=(const WakeSignals &) = delete;

    bool wait() const { return sigwaitinfo(&signals_, nullptr) > 0; }

  private:
    int descriptor_;
    sigset_t signals_;
    sigset_t mask_; // As the application had it.
};

// Whether a change of "state" is unread. The descriptor of all objects, which alone is armed, may
// have been read beyond a change of "state" that is unread at the descriptor of "state". A change
// that is published after this look is unread at both.
bool state_is_unread(const EventQueue &queue) {
    const KeepErrno keep;
    char nothing = 0;
    return platform_read(queue.state_fd, &nothing, 0) < 0 && errno == EMSGSIZE;
}

} // namespace

} // namespace vantro::events

using namespace vantro::events;

// Cancellation unwinds through this function, which is therefore not noexcept.
int vantro_event_wait(VantroHandle *handle) {
    if (!has_player(handle)) {
        return -1;
    }
    msglog(LOG_SEVERITY_DEBUG, "vantro_event_wait:");
    EventQueue *queue = handle->event_queue ? handle->event_queue : newq(handle);
    if (queue && queue->dirty_head) {
        msglog(LOG_SEVERITY_TRACE, "vantro_event_wait: some events in the queue");
        return 0;
    }
    if (!queue && !(queue = newq(handle))) {
        return -1;
    }
    if (queue->unapplied_fd != -1 || state_is_unread(*queue)) {
        msglog(LOG_SEVERITY_TRACE, "vantro_event_wait: the state is unread");
        return 0;
    }
    const WakeSignals signals(queue->all_fd);
    const int input = notify_arm(queue->all_fd, NOTIFY_TEST_AND_ARM, NOTIFY_INPUT, &sev);
    if (input != 0) {
        return input > 0 ? 0 : -1;
    }
    return signals.wait() ? 0 : -1;
}

int vantro_event_data_set(VantroHandle *handle, void *data) {
    if (!handle || !handle->event_queue || !handle->event_queue->event.dict) {
        errno = EINVAL;
        return -1;
    }
    EventQueue &queue = *handle->event_queue;
    (queue.current_entry ? queue.current_entry->user_data : queue.state_user_data) = data;
    queue.event.user_data = data;
    return 0;
}
