// Sending answers to the clients.
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>

#include <cerrno>
#include <utility>

#include "platform/linux/messages/look.h"
#include "platform/linux/messages/server.h"
#include "platform/portable/guards.h"

using namespace vantro::platform;
using vantro::MutexLock;

namespace {

// The result of claim(): the right to answer, and a pin on the lane's socket.
struct Claim {
    int socket = -1;
    std::shared_ptr<KeptMessage> kept; // freed without the lock
    ConnectionWords *words = nullptr;  // valid as long as the pin; null if the client has none
    uint32_t answers = 0;
};

// Finds the lane of a message for its answer. If the message no longer waits, its answer is no
// longer owed.
Lane *find_for_answer(Server &server, const ReceiveId &id, Client **client) REQUIRES(server_lock) {
    Lane *lane = server.find_waiting(id, client);
    if (!lane) {
        server.forget_owed(id);
    }
    return lane;
}

// Takes the lane's answer file for an answer; empty if the answer needs a separate file.
// @return false if no client waits for the answer.
bool take_answer_file(const ReceiveId &id, size_t length, std::unique_ptr<AnswerFile> &file) {
    Server &server = Server::instance();
    bool had_one_before = false;
    {
        const MutexLock guard(server_lock);
        Client *client = nullptr;
        Lane *const lane = find_for_answer(server, id, &client);
        if (!lane) {
            return false;
        }
        if (length > AnswerFile::bytes_max) {
            return true;
        }
        file = std::move(lane->answer_file);
        had_one_before = std::exchange(lane->had_long_answer, true);
    }
    if (!file || !file->fits(length)) {
        file = had_one_before ? AnswerFile::make(length) : nullptr;
    }
    return true;
}

// Ends the exchange in the lane's state before the answer is sent, since the next message may come
// at once. The answer file is returned to the lane here too: the client reads it before it sends
// anything else.
bool claim(const ReceiveId &id, std::unique_ptr<AnswerFile> file, Claim &taken) {
    Server &server = Server::instance();
    const MutexLock guard(server_lock);
    Client *client = nullptr;
    Lane *lane = find_for_answer(server, id, &client);
    if (!lane) {
        return false;
    }
    const bool hung_up = lane->state == LaneState::hung_up;
    lane->state = LaneState::idle;
    taken.kept = std::move(lane->kept);
    if (file) {
        lane->answer_file = std::move(file);
    }
    server.release_pulse(*client, *lane);
    if (hung_up) {
        server.close_lane(*client, *lane);
        return false;
    }
    server.pin(*client, lane->socket);
    taken.socket = lane->socket.fd;
    if (client->words) {
        taken.words = client->words.get();
        taken.answers = ++lane->answers;
        lane->answered_at = monotonic_ns();
    }
    return true;
}

// Closes the lane if its client has closed its end. If the send would have blocked, the client does
// not receive its answers, and loses its connection.
void settle(const ReceiveId &id, bool sent, int error) {
    Server &server = Server::instance();
    const MutexLock guard(server_lock);
    Client &client = *server.find_client(id.serial); // pinned
    if (!sent && client.is_connected()) {
        if (error == EPIPE || error == ECONNRESET) {
            server.close_lane(client, client.lanes[id.lane]);
        } else {
            server.disconnect(client);
        }
    }
    server.unpin(id.serial, static_cast<int>(id.lane));
}

// Sends one answer. This sets the frame's length, and the flag that states where the bytes are.
int answer(int receive_id, Frame frame, PartList &parts) {
    const CancelDisabled no_cancel;
    const ReceiveId id = ReceiveId::unpack(receive_id);
    frame.length = static_cast<uint32_t>(parts.length());
    frame.processor = static_cast<uint32_t>(::sched_getcpu() + 1);
    parts.set_front(&frame, sizeof frame);
    std::unique_ptr<AnswerFile> lane_file;
    UniqueFd file;
    int count = parts.count() + 1;
    if (parts.length() > IPC_INLINE_MAX) {
        if (receive_id <= 0 || !take_answer_file(id, parts.length(), lane_file)) {
            return fail(ESRCH);
        }
        if (lane_file) {
            lane_file->write(parts.callers(), parts.count(), parts.length());
            file = lane_file->take_descriptor();
            frame.flags |= frame_answer_file;
        } else {
            file = make_memory_file(parts.callers(), parts.count(), parts.length());
            if (!file) {
                return -1;
            }
            frame.flags |= frame_memory_file;
        }
        count = 1;
    }
    Claim taken;
    if (receive_id <= 0 || !claim(id, std::move(lane_file), taken)) {
        return fail(ESRCH);
    }
    forget_current(receive_id);
    ssize_t sent = send_packet(taken.socket, parts.with_front(), count, file.get(), MSG_DONTWAIT);
    if (sent < 0 && errno == EMSGSIZE && count > 1) {
        // Happens on a host with smaller socket buffers than most.
        file = make_memory_file(parts.callers(), parts.count(), parts.length());
        if (file) {
            frame.flags |= frame_memory_file;
            sent = send_packet(taken.socket, parts.with_front(), 1, file.get(), MSG_DONTWAIT);
        }
    }
    const int error = errno;
    if (taken.words) {
        taken.words->lane(id.lane).answered.store(taken.answers, std::memory_order_release);
    }
    settle(id, sent >= 0, error);
    return sent >= 0 ? 0 : fail(ESRCH);
}

} // namespace

int ipc_replyv(int receive_id, int status, const struct iovec *parts, int count) {
    PartList list;
    if (status < 0) {
        return fail(EINVAL);
    }
    if (!list.assign(parts, count)) {
        return -1;
    }
    return answer(receive_id, Frame{.length = 0, .status = status, .flags = 0, .processor = 0},
                  list);
}

int ipc_reply(int receive_id, int status, const void *data, size_t length) {
    const struct iovec part = {const_cast<void *>(data), length};
    return ipc_replyv(receive_id, status, &part, length > 0 ? 1 : 0);
}

int ipc_error(int receive_id, int error) {
    PartList none;
    none.assign(nullptr, 0);
    return answer(
        receive_id,
        Frame{.length = 0, .status = error > 0 ? error : EIO, .flags = frame_error, .processor = 0},
        none);
}

int ipc_waiting(int receive_id) {
    if (receive_id <= 0) {
        return 0;
    }
    const CancelDisabled no_cancel;
    Server &server = Server::instance();
    const MutexLock guard(server_lock);
    Client *client = nullptr;
    const Lane *lane = server.find_waiting(ReceiveId::unpack(receive_id), &client);
    if (!lane || lane->state == LaneState::hung_up) {
        return 0;
    }
    // An interrupted client closes its lane; this process may not have noticed yet.
    pollfd state = {lane->socket.fd, POLLRDHUP, 0};
    return ::poll(&state, 1, 0) == 0;
}
