// The exchanges on a connection's control socket.
#include <sys/socket.h>

#include <cerrno>
#include <utility>

#include <vantro/platform/message.h>

#include "platform/linux/base/socket_timeout.h"
#include "platform/linux/messages/connection.h"
#include "platform/portable/guards.h"

namespace vantro::platform {

bool Connection::start() {
    owed_.kind = control_lane_request;
    const int error = await_control_reply();
    if (error != 0) {
        errno = error;
    }
    return error == 0;
}

int Connection::use_control(const ControlRecord &request) {
    control_busy_ = true;
    lock_.unlock();
    const int error = state_ == State::lost ? ECONNRESET : request_control(request);
    lock_.lock();
    control_busy_ = false;
    changed_.notify_all();
    return error;
}

int Connection::request_control(const ControlRecord &request) {
    while (owed_.kind != 0) {
        const ControlRecord owed = owed_;
        const int error = await_control_reply();
        if (is_given_up(error) || error == ECONNRESET) {
            return error;
        }
        if (owed.kind == request.kind && owed.value == request.value) {
            return error; // the answer to this request
        }
    }
    struct iovec part = {const_cast<ControlRecord *>(&request), sizeof request};
    if (send_packet(control_.get(), &part, 1, -1, 0) != sizeof request) {
        if (errno == EPIPE || errno == ECONNRESET) {
            mark_lost();
            return ECONNRESET;
        }
        return errno == EAGAIN ? ETIMEDOUT : errno;
    }
    owed_ = request;
    return await_control_reply();
}

int Connection::request_words() {
    const MutexLock guard(lock_);
    if (control_busy_ || words_asked_for_.exchange(true)) {
        return 0;
    }
    const int error = use_control({control_words_request, 0});
    return is_given_up(error) || error == ECONNRESET ? fail(error) : 0;
}

int Connection::await_control_reply() {
    ControlRecord record;
    struct iovec part = {&record, sizeof record};
    Arrival arrival;
    const ssize_t received = receive_packet(control_.get(), &part, 1, 0, arrival);
    if (received < 0 && (errno == EINTR || errno == EAGAIN)) {
        return errno == EAGAIN ? ETIMEDOUT : EINTR;
    }
    const ControlRecord owed = std::exchange(owed_, {});
    int error = ECONNRESET;
    if (received == sizeof record && record.kind == control_refused && record.value > 0) {
        return record.value;
    }
    if (received == sizeof record && owed.kind == control_lane_request &&
        record.kind == control_lane_granted) {
        if (record.value >> wire_version_shift != wire_version) {
            return EPROTONOSUPPORT;
        }
        error = arrival.descriptor ? take_granted_lane(arrival.descriptor.release(), record.value)
                                   : EMFILE;
    } else if (received == sizeof record && owed.kind == control_pulse_request &&
               record.kind == control_pulse_granted && record.value == owed.value) {
        error = arrival.descriptor
                    ? adopt_pulse_end(owed.value, *this, std::move(arrival.descriptor))
                    : EMFILE;
    } else if (received == sizeof record && owed.kind == control_words_request &&
               record.kind == control_words_granted) {
        take_granted_words(arrival.descriptor.get());
        error = 0;
    }
    if (error == ECONNRESET) {
        mark_lost();
    }
    return error;
}

int Connection::take_granted_lane(int lane, int grant) {
    const MutexLock table_guard(connections_lock);
    const MutexLock guard(lock_);
    hands_over_ = grant & lane_hands_over;
    lanes_[static_cast<size_t>(lane_count_++)] = lane;
    PooledLane &pooled = idle_[static_cast<size_t>(idle_count_++)];
    pooled = {};
    pooled.socket = lane;
    pooled.index = grant >> lane_index_shift & lane_index_mask;
    if (timeout_ms_ >= 0) {
        set_socket_timeout(lane, timeout_ms_);
    }
    return 0;
}

// If the file cannot be used, the connection works without words.
void Connection::take_granted_words(int file) {
    std::shared_ptr<ConnectionWords> words = file >= 0 ? ConnectionWords::adopt(file) : nullptr;
    const MutexLock table_guard(connections_lock);
    words_ = std::move(words);
    words_in_use_ = words_.get();
}

int Connection::announce_pulse(int number) {
    const CancelDisabled no_cancel;
    if (abandoned()) {
        return fail(EBADF);
    }
    const MutexLock guard(lock_);
    std::optional<Deadline> deadline;
    while (control_busy_) {
        if (const int error = wait_for_change(deadline); error != 0) {
            return fail(error);
        }
    }
    const int error = use_control({control_pulse_request, number});
    return error == 0 ? 0 : fail(error);
}

} // namespace vantro::platform
