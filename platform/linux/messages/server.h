// The receiving side of a process: its channels, the clients of each, and their lanes.
//
// Invariants
// - One lock, `server_lock`, guards everything. No call that can block, and no exchange, is made
//   with the lock held; it is taken for table look-ups and state changes only.
//  - A lane carries one exchange at a time: a message is received, then answered. The lane's state
//    returns to `idle` before the reply is sent, since the client's next message may arrive
//    immediately. A message on a lane that waits for an answer is misconduct.
//  - Several threads wait for the same sockets (wait_sets.h). Between a thread's event and its
//    receive another thread may close the socket, and its number may be given to another socket. So
//    a thread pins a socket (`PinnedFd`) with the lock held before it uses the socket, and the
//    thread that removes the last pin closes the socket. Sockets are closed only by
//    close_client_socket(), which does not wait. Events name lanes and clients by numbers that are
//    never reused.
// - A client that is gone stays in the table until its disconnect pulse was received and its id was
//   detached. The pulse waits until every message received from the client is answered, or the
//   thread that received it is back in receive (`dispatching`), so that no request of that client
//   is still in progress when a server sweeps at the pulse.
#ifndef VANTRO_PLATFORM_LINUX_MESSAGES_SERVER_H
#define VANTRO_PLATFORM_LINUX_MESSAGES_SERVER_H

#include <sys/epoll.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include <vantro/platform/message.h>

#include "common/locks.h"
#include "platform/linux/base/unique_fd.h"
#include "platform/linux/messages/answer_file.h"
#include "platform/linux/messages/client_descriptors.h"
#include "platform/linux/messages/ids.h"
#include "platform/linux/messages/lane_words.h"
#include "platform/linux/messages/wait_sets.h"
#include "platform/linux/messages/wire.h"
#include "platform/linux/runtime/published_name.h"

namespace vantro::platform {

// A client's socket that threads use without the lock.
struct PinnedFd {
    int fd = -1;
    int pins = 0;
    bool closing = false;
};

// A whole message that did not fit its receive vector, kept until its reply.
struct KeptMessage {
    UniqueFd file; // the sender's memory file, or
    std::unique_ptr<char[]> bytes;
    size_t length = 0;
};

enum class LaneState : uint8_t {
    closed,       // and nothing is owed; its socket may still be pinned
    closed_owing, // it closed before its message was answered: see Server::owed
    idle,
    waiting, // a message was received and is not answered
    hung_up  // as `waiting`, and the client has closed its end: close after the answer
};

struct Lane {
    PinnedFd socket GUARDED_BY(server_lock);
    // Distinguishes this lane from an earlier one with the same index.
    uint32_t incarnation GUARDED_BY(server_lock) = 0;
    // Counts the exchanges of this index; part of the receive id.
    uint32_t exchange GUARDED_BY(server_lock) = 0;
    LaneState state GUARDED_BY(server_lock) = LaneState::closed;
    // The lane's last message delays the disconnect pulse, perhaps beyond the lane's close.
    bool holds_pulse GUARDED_BY(server_lock) = false;
    // The processor from which its client sent its first message; -1: unknown.
    int home GUARDED_BY(server_lock) = -1;
    // That of the wait sets at the time when the home was last set.
    uint32_t wait_sets_generation GUARDED_BY(server_lock) = 0;
    std::shared_ptr<KeptMessage> kept GUARDED_BY(server_lock);
    // The file for its long answers; empty while a thread writes one.
    std::unique_ptr<AnswerFile> answer_file GUARDED_BY(server_lock);
    bool had_long_answer GUARDED_BY(server_lock) = false;
    // If its client has words:
    uint32_t answers GUARDED_BY(server_lock) = 0;    // since the lane was made
    int64_t answered_at GUARDED_BY(server_lock) = 0; // monotonic, in ns
    // Exchanges in a row whose message came at once after the previous answer; up to quick_enough.
    int quick GUARDED_BY(server_lock) = 0;
    bool is_unwatched GUARDED_BY(server_lock) = false; // a thread looks at the lane's words instead

    static constexpr int quick_enough = 2;

    bool owes_answer() const REQUIRES(server_lock) {
        return state == LaneState::waiting || state == LaneState::hung_up;
    }
};

struct Channel;

// The socket on which the pulses for one pulse connection of a client are sent.
struct PulseOutlet {
    int number GUARDED_BY(server_lock) = 0; // the client's number of the pulse connection
    // Distinguishes the outlet from an earlier one with the same index.
    uint32_t incarnation GUARDED_BY(server_lock) = 0;
    UniqueFd socket GUARDED_BY(server_lock); // empty if the index is free
    // Pulses for which the socket had no room.
    std::vector<struct ipc_pulse> waiting GUARDED_BY(server_lock);
};

// In the order in which a client passes through them; it may skip some of the later ones.
enum class ClientState : uint8_t {
    connected,
    gone,       // its disconnect pulse waits until nothing holds it back
    pulse_sent, // the pulse was sent
    pulse_received,
    detached // erased once none of its sockets is pinned
};

// One connected client. Its credentials and the path it opened do not change once it is in the
// table.
struct Client {
    uint32_t serial = 0;
    uint32_t incarnation = 0;
    Channel *channel = nullptr; // outlives its clients
    int attachment = 0;         // the path it opened; 0 for a global name
    PinnedFd control GUARDED_BY(server_lock);
    std::vector<Lane> lanes GUARDED_BY(server_lock);
    std::vector<PulseOutlet> outlets GUARDED_BY(server_lock);
    bool credentials_known = false;
    int32_t pid = 0;
    uint32_t uid = static_cast<uint32_t>(-1);
    uint32_t gid = 0;
    std::vector<uint32_t> groups; // all groups; empty if the kernel did not state them
    int dispatching GUARDED_BY(server_lock) = 0;
    int pins GUARDED_BY(server_lock) = 0; // of all its sockets; a pinned client is not erased
    ClientState state GUARDED_BY(server_lock) = ClientState::connected;
    // After the client has requested them.
    std::shared_ptr<ConnectionWords> words GUARDED_BY(server_lock);
    // Serial of the client whose disconnect pulse follows this one's.
    uint32_t next_pulse GUARDED_BY(server_lock) = 0;

    bool is_connected() const REQUIRES(server_lock) { return state == ClientState::connected; }
};

struct Listener {
    UniqueFd socket;
    int attachment = 0;
    PublishedName name;
};

class Connection;

// The socket on which one server's pulses for one pulse connection of this process arrive.
struct PulseEnd {
    int number = 0;                     // of the pulse connection
    const Connection *server = nullptr; // only for distinguishing ends; it may be gone
    uint32_t id = 0;
    std::shared_ptr<ForeignFd> socket; // threads receive on it without the lock
};

// The channel's descriptors are closed with its last reference; receiving threads hold references.
struct Channel {
    int number = 0;
    unsigned flags GUARDED_BY(server_lock) = 0;
    WaitSets wait_sets;
    UniqueFd wake; // counts the disconnect pulses; stays readable once destroyed
    UniqueFd pulse_receive GUARDED_BY(server_lock); // of pulses that this process sends
    std::shared_ptr<UniqueFd> pulse_send GUARDED_BY(server_lock);
    std::vector<PulseEnd> pulse_ends GUARDED_BY(server_lock); // of pulses that servers send
    // The first and the last client with an unreceived disconnect pulse, by serial: a list linked
    // through the clients, so that adding one needs no memory.
    uint32_t first_pulse GUARDED_BY(server_lock) = 0;
    uint32_t last_pulse GUARDED_BY(server_lock) = 0;
    std::vector<std::unique_ptr<Listener>> listeners GUARDED_BY(server_lock);
    int client_count GUARDED_BY(server_lock) = 0;
    std::atomic<bool> destroyed = false; // set with the lock held

    // Once the channel is destroyed.
    void withdraw_names();
};

// The source of an event of a channel's epoll set; fits the event's 64 bits of data.
struct Source {
    enum Kind : uint8_t {
        system_pulse,
        sent_pulse, // incarnation is the id of the PulseEnd, 0 for the channel's own socket
        new_client,
        client_control,
        client_lane,
        client_outlet, // lane is its index
        channel_end
    };
    Kind kind = system_pulse;
    uint16_t serial = 0; // of a listener, its index
    uint8_t lane = 0;
    uint32_t incarnation = 0;

    uint64_t pack() const {
        return uint64_t{kind} << 56 | uint64_t{serial} << 40 | uint64_t{lane} << 32 | incarnation;
    }
    static Source unpack(uint64_t bits) {
        return {static_cast<Kind>(bits >> 56), static_cast<uint16_t>(bits >> 40),
                static_cast<uint8_t>(bits >> 32), static_cast<uint32_t>(bits)};
    }
};

// The events for which lanes, outlets and other sockets are watched.
inline constexpr uint32_t lane_events = EPOLLIN | EPOLLRDHUP | EPOLLET;
inline constexpr uint32_t outlet_events = EPOLLET; // a close by its client is always reported
inline constexpr uint32_t socket_events = EPOLLIN | EPOLLRDHUP;
inline const WatchedSocket wake_watched = {EPOLLIN, Source{Source::system_pulse}.pack()};

struct Server {
    std::unordered_map<int, std::shared_ptr<Channel>> channels GUARDED_BY(server_lock);
    // By serial.
    std::array<std::unique_ptr<Client>, IPC_CONNECTIONS_MAX + 1> clients GUARDED_BY(server_lock);
    // The number of answers that the program still owes to clients that are gone, by serial. A late
    // answer would go to a new client with the same number. So such a serial is reused last, and so
    // is a lane's index (`LaneState::closed_owing`).
    std::array<uint8_t, IPC_CONNECTIONS_MAX + 1> owed GUARDED_BY(server_lock){};
    ClientDescriptors descriptors GUARDED_BY(server_lock);
    uint32_t last_serial GUARDED_BY(server_lock) = 0;
    uint32_t last_incarnation GUARDED_BY(server_lock) = 0;
    int last_channel GUARDED_BY(server_lock) = 0;

    // The single server side of the process; never destroyed, since threads may outlive main.
    static Server &instance();

    std::shared_ptr<Channel> find_channel(int number) EXCLUDES(server_lock);
    // Makes the kernel report an event again, to the next waiting thread.
    void report_again(const Source &source) REQUIRES(server_lock);
    // Ends the connection of a client whose sockets can no longer be watched.
    void give_up(const Source &source) REQUIRES(server_lock);

    Client *find_client(uint32_t serial) REQUIRES(server_lock) {
        return serial <= IPC_CONNECTIONS_MAX ? clients[serial].get() : nullptr;
    }
    // The lane of an event if it is open and was not replaced; else null.
    Lane *find_open_lane(const Source &source) REQUIRES(server_lock);
    // Watches a lane again that was unwatched while a thread looked at its words.
    void watch_lane_again(const Source &source) REQUIRES(server_lock);
    // The lane of a message that waits for its answer, or null.
    Lane *find_waiting(const ReceiveId &id, Client **client) REQUIRES(server_lock);
    // An answer has come for a message that no longer waits.
    void forget_owed(const ReceiveId &id) REQUIRES(server_lock);

    void pin(Client &client, PinnedFd &socket) REQUIRES(server_lock);
    // Removes a pin, and closes the socket if that was the last reason to keep it. May erase the
    // client.
    // @param lane -1: the control socket.
    void unpin(uint32_t serial, int lane) REQUIRES(server_lock);

    void close_socket(Client &client, PinnedFd &socket) REQUIRES(server_lock);
    void close_lane(Client &client, Lane &lane) REQUIRES(server_lock);
    void close_outlet(Client &client, PulseOutlet &outlet) REQUIRES(server_lock);
    // Ends a connection; its disconnect pulse follows when no message delays it.
    void disconnect(Client &client) REQUIRES(server_lock);
    // A message no longer delays the pulse; call erase_if_finished() next.
    void release_pulse(Client &client, Lane &lane) REQUIRES(server_lock);
    void erase_if_finished(Client &client) REQUIRES(server_lock);
};

// Wakes one receiving thread of a channel for a pulse of the system.
void wake_receiver(const Channel &channel);

// server_accept.cpp: handling of listening and control sockets.
void accept_client(Channel &channel, uint16_t listener) EXCLUDES(server_lock);
void serve_control(const Source &source) EXCLUDES(server_lock);

// server_pulses.cpp: makes an outlet for a client whose control socket is pinned, and passes its
// far end, or refuses. @return false if the client must be disconnected.
bool grant_pulses(uint32_t serial, int control, int number) EXCLUDES(server_lock);
// An outlet has room again, or its client has closed the other end.
void serve_outlet(const Source &source, bool hung_up) EXCLUDES(server_lock);

// pulse.cpp: ends the reception on one of a channel's pulse ends. A retired end still delivers the
// pulses that have arrived.
void retire_pulse_end(Channel &channel, size_t index) REQUIRES(server_lock);
void close_pulse_end(Channel &channel, size_t index) REQUIRES(server_lock);

// Sends on a control socket. @return false if the client does not read its answers, and must be
// disconnected.
bool send_control(int socket, ControlKind kind, int value, int descriptor);
// The error for a client if this process could not make a descriptor.
inline int descriptor_error(int error) {
    return error == EMFILE || error == ENFILE ? EAGAIN : error;
}

// server_receive.cpp
struct ReceivedMessage {
    int receive_id = 0;
    uint32_t client_incarnation = 0;
    struct ipc_info info = {};
    // If the client has words and sends its messages in quick succession:
    std::shared_ptr<ConnectionWords> words;
    int sender = -1; // the processor from which this message was sent
};
// Receives one packet of a lane. @return true if the caller gets a message.
bool receive_from_lane(const Source &source, bool hung_up, PartList &parts,
                       ReceivedMessage &message) EXCLUDES(server_lock);

// channel.cpp: the calling thread has answered its last message.
void forget_current(int receive_id);

// Whether a client is in a supplementary group. @return false if the client is unknown.
bool client_in_group(int conn_id, uint32_t group, bool &is_member) EXCLUDES(server_lock);
// The attachment through which a client came, 0 for none.
int client_attachment(int conn_id) EXCLUDES(server_lock);

} // namespace vantro::platform

#endif
