// One exchange on a lane: sends the message, receives the reply.
#include <sched.h>
#include <sys/socket.h>

#include <cerrno>

#include <vantro/platform/message.h>

#include "platform/linux/messages/answer_file.h"
#include "platform/linux/messages/connection.h"
#include "platform/linux/messages/ids.h"
#include "platform/portable/guards.h"

namespace vantro::platform {

namespace {

bool is_lost(int error) {
    return error == EPIPE || error == ECONNRESET || error == ENOTCONN;
}

// Sends frame and message; a long message goes as a memory file. `processor` is the sender's, or
// -1.
// @return 0 or an error number.
int send_message(int lane, int processor, Frame &frame, PartList &send) {
    frame = {};
    frame.processor = static_cast<uint32_t>(processor + 1);
    frame.length = static_cast<uint32_t>(send.length());
    send.set_front(&frame, sizeof frame);
    if (send.length() <= IPC_INLINE_MAX) {
        if (send_packet(lane, send.with_front(), send.count() + 1, -1, 0) >= 0) {
            return 0;
        }
        if (errno != EMSGSIZE) {
            return errno;
        }
    }
    const UniqueFd file = make_memory_file(send.callers(), send.count(), send.length());
    if (!file) {
        return errno;
    }
    frame.flags = frame_memory_file;
    return send_packet(lane, send.with_front(), 1, file.get(), 0) >= 0 ? 0 : errno;
}

} // namespace

int Connection::look_for_answer(const PooledLane &lane, LaneWords &words, uint32_t seen) {
    thread_local LookBudget budget;
    // A peer on this processor cannot answer while this thread looks.
    const bool may_look =
        looking_allowed && lane.user >= 0 && lane.peer >= 0 && lane.peer != lane.user;
    if (may_look && budget.look(words.answered, seen)) {
        return 0;
    }
    // Read after the message was sent: if the server stopped watching the lane before the message
    // came, this shows it.
    if (words.unwatched.load() == 0) {
        return 0;
    }
    ControlRecord record{control_watch_lane, lane.index};
    const struct iovec part = {&record, sizeof record};
    if (send_packet(control_.get(), &part, 1, -1, 0) == sizeof record) {
        return 0;
    }
    return errno == EAGAIN ? ETIMEDOUT : errno;
}

int Connection::exchange_on_lane(PooledLane &pooled, PartList &send, PartList &reply,
                                 size_t &received, bool &lane_is_good) {
    const int lane = pooled.socket;
    ConnectionWords *const all_words = words_in_use_;
    LaneWords *const words =
        all_words ? &all_words->lane(static_cast<size_t>(pooled.index)) : nullptr;
    const uint32_t seen = words ? words->answered.load(std::memory_order_acquire) : 0;
    Frame frame;
    if (const int error = send_message(lane, pooled.user, frame, send); error != 0) {
        if (is_lost(error)) {
            mark_lost();
            return fail(ECONNRESET);
        }
        lane_is_good = error != EINTR; // nothing was sent
        return fail(error == EAGAIN ? ETIMEDOUT : error);
    }

    if (words) {
        words->sent = ++pooled.sent; // must come before reading `unwatched`
        if (const int error = look_for_answer(pooled, *words, seen); error != 0) {
            if (is_lost(error)) {
                mark_lost();
            }
            return fail(is_lost(error) ? ECONNRESET : error);
        }
    }
    reply.set_front(&frame, sizeof frame);
    Arrival arrival;
    const ssize_t packet =
        reply.give_descriptor_back(lane)
            ? receive_packet(lane, reply.with_front(), reply.count() + 1, 0, arrival)
            : -1;
    if (packet < 0 && !is_lost(errno)) {
        // The answer may still come, so the lane is given up.
        return fail(errno == EAGAIN ? ETIMEDOUT : errno);
    }
    const bool is_error = frame.flags & frame_error;
    if (packet < static_cast<ssize_t>(sizeof frame) || frame.status < (is_error ? 1 : 0)) {
        mark_lost();
        return fail(ECONNRESET);
    }
    lane_is_good = true;
    pooled.peer = frame.processor <= CPU_SETSIZE ? static_cast<int>(frame.processor) - 1 : -1;
    if (is_error) {
        return fail(frame.status);
    }
    ssize_t length = packet - static_cast<ssize_t>(sizeof frame);
    if (frame.flags & frame_answer_file) {
        length = read_answer_file(lane, frame, arrival, reply, lane_is_good);
    } else if (frame.flags & frame_memory_file) {
        length = read_own_file(frame, arrival, reply);
    }
    if (length < 0) {
        return -1;
    }
    received = static_cast<size_t>(length);
    return frame.status;
}

ssize_t Connection::read_own_file(const Frame &frame, Arrival &arrival, PartList &reply) {
    if (!arrival.descriptor && arrival.descriptor_lost) {
        return fail(EMFILE);
    }
    const int error = !arrival.descriptor || frame.length > IPC_MESSAGE_MAX
                          ? ECONNRESET
                          : check_memory_file(arrival.descriptor.get(), frame.length);
    if (error != 0) {
        if (error == ECONNRESET) {
            mark_lost();
        }
        return fail(error);
    }
    const UniqueFd file(arrival.descriptor.release()); // closing it never waits
    return read_memory_file(file.get(), 0, reply.callers(), reply.count(), frame.length);
}

ssize_t Connection::read_answer_file(int lane, const Frame &frame, Arrival &arrival,
                                     PartList &reply, bool &lane_is_good) {
    if (arrival.descriptor_lost) {
        lane_is_good = false; // the server believes that the client has it
        return fail(EMFILE);
    }
    size_t length = 0;
    const bool is_new = static_cast<bool>(arrival.descriptor);
    int file = -1;
    const int error = is_new ? check_answer_file(arrival.descriptor.get(), length) : 0;
    if (error != 0 && error != ECONNRESET) {
        lane_is_good = false;
        return fail(error);
    }
    if (error == 0) {
        const MutexLock guard(lock_);
        LaneFile *place = find_file(lane);
        if (is_new) {
            place = place ? place : find_file(-1); // there is one for each lane
            *place = {lane, UniqueFd(arrival.descriptor.release()), length};
        }
        if (place && frame.length <= place->length) {
            file = place->file.get();
        }
    }
    if (file < 0) {
        mark_lost();
        return fail(ECONNRESET);
    }
    return read_memory_file(file, 0, reply.callers(), reply.count(), frame.length);
}

namespace {

// @param once whether the server sends the answer only once; see ipc_fetch().
int send_and_wait(int number, const struct iovec *send, int send_count, const struct iovec *reply,
                  int reply_count, size_t *received, bool once) {
    *received = 0;
    if (kind_of(number) == NumberKind::pulse_connection) {
        return fail(ENOTSUP);
    }
    const std::shared_ptr<Connection> connection = Connections::instance().find(number);
    if (!connection) {
        return fail(EBADF);
    }
    PartList send_parts;
    PartList reply_parts;
    if (!send_parts.assign(send, send_count) || !reply_parts.assign(reply, reply_count)) {
        return -1;
    }
    if (once && reply_parts.length() > IPC_INLINE_MAX && !reply_parts.keep_descriptor()) {
        return -1;
    }
    return connection->exchange(send_parts, reply_parts, *received);
}

} // namespace
} // namespace vantro::platform

using namespace vantro::platform;

int ipc_send(int number, const struct iovec *send, int send_count, const struct iovec *reply,
             int reply_count) {
    size_t received;
    return send_and_wait(number, send, send_count, reply, reply_count, &received, false);
}

int ipc_send_counted(int number, const struct iovec *send, int send_count,
                     const struct iovec *reply, int reply_count, size_t *received) {
    return send_and_wait(number, send, send_count, reply, reply_count, received, false);
}

int ipc_fetch(int number, const struct iovec *send, int send_count, const struct iovec *reply,
              int reply_count, size_t *received) {
    return send_and_wait(number, send, send_count, reply, reply_count, received, true);
}

int ipc_send_simple(int number, const void *message, size_t length, void *reply,
                    size_t reply_length) {
    const struct iovec send_part = {const_cast<void *>(message), length};
    const struct iovec reply_part = {reply, reply_length};
    return ipc_send(number, &send_part, length > 0 ? 1 : 0, &reply_part, reply_length > 0 ? 1 : 0);
}
