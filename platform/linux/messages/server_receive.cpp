// Receives messages from lanes, and detects misconduct.
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "platform/linux/messages/look.h"
#include "platform/linux/messages/server.h"
#include "platform/portable/guards.h"

namespace vantro::platform {

namespace {

// Receives the end of a message that does not fit the caller's vector.
char *spill_area() {
    thread_local std::unique_ptr<char[]> area;
    if (!area) {
        area.reset(new (std::nothrow) char[IPC_INLINE_MAX]);
    }
    return area.get(); // NOLINT(clang-analyzer-cplusplus.NewDelete): freed at the thread's end
}

enum class Verdict { message, misconduct, refused };

// One packet from the lane's socket.
struct Packet {
    Frame frame;
    size_t received = 0; // the frame not counted
    Arrival arrival;
};

Verdict judge(const Packet &packet) {
    const Frame &frame = packet.frame;
    if (frame.flags & ~uint32_t{frame_memory_file} || frame.length > IPC_MESSAGE_MAX ||
        packet.arrival.too_many) {
        return Verdict::misconduct;
    }
    if (!(frame.flags & frame_memory_file)) {
        return frame.length == packet.received && !packet.arrival.descriptor ? Verdict::message
                                                                             : Verdict::misconduct;
    }
    if (packet.received != 0) {
        return Verdict::misconduct;
    }
    if (!packet.arrival.descriptor) {
        return packet.arrival.descriptor_lost ? Verdict::refused : Verdict::misconduct;
    }
    const int error = check_memory_file(packet.arrival.descriptor.get(), frame.length);
    return error == 0            ? Verdict::message
           : error == ECONNRESET ? Verdict::misconduct
                                 : Verdict::refused;
}

// Keeps a message that reached the end of the caller's vector: the caller may move its buffer
// before it reads the rest. @return 0 or an error number for the client.
int keep(Packet &packet, const PartList &list, const struct iovec *parts,
         std::shared_ptr<KeptMessage> &kept) {
    if (packet.frame.length < list.length() && !packet.arrival.descriptor) {
        return 0;
    }
    try {
        auto message = std::make_shared<KeptMessage>();
        message->length = packet.frame.length;
        if (packet.arrival.descriptor) {
            if (read_memory_file(packet.arrival.descriptor.get(), 0, parts, list.count(),
                                 packet.frame.length) < 0) {
                return EIO;
            }
            message->file.reset(packet.arrival.descriptor.release()); // closing it never waits
        } else {
            message->bytes.reset(new char[packet.frame.length]);
            const size_t fitted =
                gather(message->bytes.get(), packet.frame.length, parts, list.count());
            if (packet.frame.length > fitted) {
                std::memcpy(message->bytes.get() + fitted, spill_area(),
                            packet.frame.length - fitted);
            }
        }
        kept = std::move(message);
    } catch (const std::bad_alloc &) {
        return ENOMEM;
    }
    return 0;
}

// The result of one receive.
struct Received {
    Packet packet;
    Verdict verdict = Verdict::misconduct;
    bool ended = false; // the lane's other end is closed, or broken
    std::shared_ptr<KeptMessage> kept;
};

// A lane's home is the processor from which its first message came. The home's thread is woken
// first. @return false if the lane cannot be watched any more.
bool settle_home(Client &client, Lane &lane, uint32_t processor) REQUIRES(server_lock) {
    WaitSets &wait_sets = client.channel->wait_sets;
    if (!wait_sets.hands_over() || processor == 0 || processor > CPU_SETSIZE ||
        (lane.home >= 0 && lane.wait_sets_generation == wait_sets.generation())) {
        return true;
    }
    lane.home = lane.home >= 0 ? lane.home : static_cast<int>(processor) - 1;
    lane.wait_sets_generation = wait_sets.generation();
    return wait_sets.set_home(lane.socket.fd, lane.home);
}

// A message is quick if it comes within this time after the previous answer, also if both sides
// slept in between.
constexpr int64_t quick_ns = 200'000;

// If the client has words, tells the receiver whether to look at them for the next message.
void note_speed(const Client &client, Lane &lane, uint32_t processor, ReceivedMessage &message)
    REQUIRES(server_lock) {
    if (!client.words || processor == 0 || processor > CPU_SETSIZE) {
        return;
    }
    const bool is_quick = monotonic_ns() - lane.answered_at < quick_ns;
    lane.quick = is_quick ? std::min(lane.quick + 1, Lane::quick_enough) : 0;
    if (lane.quick == Lane::quick_enough) {
        message.words = client.words;
        message.sender = static_cast<int>(processor) - 1;
    }
}

// Makes the received packet the lane's message. Closes the lane if it has ended, and disconnects
// the client after misconduct or if the lane cannot be watched.
void settle(Server &server, const Source &source, bool hung_up, const PartList &parts,
            Received &received, ReceivedMessage &message) REQUIRES(server_lock) {
    Client &client = *server.find_client(source.serial); // pinned
    Lane &lane = client.lanes[source.lane];
    if (lane.socket.closing) {
        return;
    }
    if (received.ended) {
        server.close_lane(client, lane);
        return;
    }
    if (received.verdict == Verdict::misconduct || lane.owes_answer() ||
        !settle_home(client, lane, received.packet.frame.processor)) {
        server.disconnect(client);
        return;
    }
    lane.exchange = (lane.exchange + 1) & ReceiveId::exchange_mask;
    lane.state = hung_up ? LaneState::hung_up : LaneState::waiting;
    if (!lane.holds_pulse) {
        lane.holds_pulse = true;
        ++client.dispatching;
    }
    lane.kept = std::move(received.kept);
    const size_t length = received.packet.frame.length;
    message.receive_id = ReceiveId{source.serial, source.lane, lane.exchange}.pack();
    message.client_incarnation = client.incarnation;
    note_speed(client, lane, received.packet.frame.processor, message);
    message.info.pid = client.pid;
    message.info.conn_id = make_number(NumberKind::client_id, static_cast<int>(source.serial));
    message.info.channel = client.channel->number;
    message.info.total_length = static_cast<int32_t>(length);
    message.info.msg_length = static_cast<int32_t>(std::min(length, parts.length()));
}

} // namespace

bool receive_from_lane(const Source &source, bool hung_up, PartList &parts,
                       ReceivedMessage &message) {
    Server &server = Server::instance();
    int socket;
    {
        const MutexLock guard(server_lock);
        Lane *const lane = server.find_open_lane(source);
        if (!lane) {
            return false;
        }
        server.pin(*server.find_client(source.serial), lane->socket);
        socket = lane->socket.fd;
    }

    Received received;
    Packet &packet = received.packet;
    parts.set_front(&packet.frame, sizeof packet.frame);
    char *spill = spill_area();
    parts.set_back(spill, spill ? IPC_INLINE_MAX : 0);
    const ssize_t bytes = receive_packet(socket, parts.with_front(), parts.count() + 2,
                                         MSG_DONTWAIT, packet.arrival, takes_descriptors());
    const bool nothing = bytes < 0 && (errno == EAGAIN || errno == EINTR);
    received.ended = bytes <= 0;
    int error = 0;
    if (bytes >= static_cast<ssize_t>(sizeof packet.frame)) {
        packet.received = static_cast<size_t>(bytes) - sizeof packet.frame;
        received.verdict = judge(packet);
        error = received.verdict == Verdict::refused ? EMFILE : 0;
        if (received.verdict == Verdict::message) {
            error = keep(packet, parts, parts.callers(), received.kept);
        }
    }

    {
        const MutexLock guard(server_lock);
        if (!nothing) {
            settle(server, source, hung_up, parts, received, message);
        }
        server.unpin(source.serial, source.lane);
    }
    if (message.receive_id != 0 && error != 0) {
        ipc_error(message.receive_id, error);
        message.receive_id = 0;
    }
    return message.receive_id != 0;
}

} // namespace vantro::platform

ssize_t ipc_read(int receive_id, void *buffer, size_t length, size_t offset) {
    using namespace vantro::platform;
    using vantro::MutexLock;
    const CancelDisabled no_cancel; // otherwise a cancelled thread would lose its message
    Server &server = Server::instance();
    std::shared_ptr<KeptMessage> kept;
    {
        const MutexLock guard(server_lock);
        Client *client = nullptr;
        const Lane *lane =
            receive_id > 0 ? server.find_waiting(ReceiveId::unpack(receive_id), &client) : nullptr;
        if (!lane) {
            errno = ESRCH;
            return -1;
        }
        kept = lane->kept;
    }
    if (!kept || offset >= kept->length) {
        return 0;
    }
    length = std::min(length, kept->length - offset);
    if (kept->file) {
        const struct iovec part = {buffer, length};
        return read_memory_file(kept->file.get(), offset, &part, 1, length);
    }
    std::memcpy(buffer, kept->bytes.get() + offset, length);
    return static_cast<ssize_t>(length);
}
