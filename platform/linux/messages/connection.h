// The sending side of a process: its connections and their pools of lanes.
//
// Invariants
//  - `connections_lock` guards the table, and `Connection::lock_` one connection's pool; neither
//    is held across a system call that can block. The table's comes first if both are taken.
//    The list of lanes is changed with both held: a fork holds the table's, so its child finds
//    every list whole.
//  - A thread takes a lane for one exchange and gives it back. An exchange that was interrupted, or
//    whose time was over, closes its lane, so that its answer can never be taken for another's.
//  - Where the server hands over, a lane belongs to the processor from which it was first used. A
//    thread takes a lane of its own processor if it can, and the server then answers there.
//  - The control socket has at most one request unanswered. If a wait ended without its answer,
//    the next user of the control socket collects that answer first.
//  - Time limits are set on the sockets, so that a bounded exchange needs no more system calls.
#ifndef VANTRO_PLATFORM_LINUX_MESSAGES_CONNECTION_H
#define VANTRO_PLATFORM_LINUX_MESSAGES_CONNECTION_H

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <optional>
#include <unordered_map>

#include <vantro/platform/limits.h>

#include "common/locks.h"
#include "platform/linux/base/interruptible_condition.h"
#include "platform/linux/base/unique_fd.h"
#include "platform/linux/messages/ids.h"
#include "platform/linux/messages/lane_words.h"
#include "platform/linux/messages/look.h"
#include "platform/linux/messages/wire.h"

namespace vantro::platform {

// Of the process's table of connections: held across a fork.
extern Mutex connections_lock;

class Connection {
  public:
    explicit Connection(UniqueFd control) : control_(std::move(control)) {}
    ~Connection();

    // Waits for the first lane, which the server sends without a request.
    bool start();

    // See ipc_set_timeout().
    void set_timeout(int timeout_ms) EXCLUDES(lock_);

    // One exchange; see ipc_send_counted().
    int exchange(PartList &send, PartList &reply, size_t &received);

    // Lets the server deliver to a pulse connection; see ipc_announce_pulse().
    int announce_pulse(int number);

    // See ipc_connected().
    bool is_connected();

    // In a child of fork: closes the copies of the parent's sockets. The number of the control
    // socket stays taken until it is closed: what the child opens next must not be found under a
    // number that it still holds for this connection.
    void abandon_in_child() REQUIRES(connections_lock);
    bool abandoned() const { return state_ == State::abandoned; }
    // In a child of fork: the thread that held the number has closed it.
    void give_up_number() { control_.reset(); }
    // The program closed the number itself, and it belongs to another file by now.
    void forget_number() { control_.release(); }

  private:
    enum class State : uint8_t {
        connected,
        lost,     // the server is gone, or does not keep to the protocol
        abandoned // by a child of fork; set before it has other threads
    };

    struct PooledLane {
        int socket = -1;
        int home = -1;     // the processor of its users; -1: not used yet, or it does not matter
        int index = 0;     // in the server
        int user = -1;     // the processor on which the exchange began; -1: does not matter
        int peer = -1;     // the processor of its last answer; -1: unknown
        uint32_t sent = 0; // messages
        // Number of exchanges in a row that followed each other quickly; up to quick_enough.
        int quick = 0;
        int64_t answered_at = 0; // monotonic, in ns
    };
    // After this many exchanges in a row, each within quick_ns of the previous one, words are
    // requested.
    static constexpr int quick_enough = 8;
    static constexpr int64_t quick_ns = 200'000;

    // Takes a lane for one exchange. @return 0, or -1 with errno.
    // @param running_on the caller's processor, or -1.
    int take_lane(int running_on, PooledLane &lane) EXCLUDES(lock_);
    // The idle lane that a thread on that processor takes; -1: request another one first.
    int choose_lane(int processor) const REQUIRES(lock_);
    bool may_grow() const REQUIRES(lock_) {
        return lane_count_ < IPC_LANES_MAX && !(full_ && lane_count_ > 0);
    }
    void give_back(PooledLane lane) EXCLUDES(lock_);
    void drop(PooledLane lane) EXCLUDES(connections_lock, lock_);
    void mark_lost() EXCLUDES(lock_);
    // Counts quick exchanges with a server that answers on another processor.
    void note_speed(PooledLane &lane) const;
    // Requests the connection's words, once. If the server has none, the connection works without.
    // @return 0, or -1 with errno if the wait was interrupted.
    int request_words() EXCLUDES(connections_lock, lock_);
    // Called after a message was sent: looks for its answer, and ensures that the lane is watched
    // before the thread sleeps. @return 0 or an error number.
    // @param seen the server's word before the message was sent.
    int look_for_answer(const PooledLane &lane, LaneWords &words, uint32_t seen);

    // Takes the control socket for one request. The lock is released while waiting for the server.
    // @return 0 or an error number.
    int use_control(const ControlRecord &request) REQUIRES(lock_);
    // One request and its answer on the control socket. @return 0 or an error number.
    int request_control(const ControlRecord &request) EXCLUDES(connections_lock, lock_);
    int await_control_reply() EXCLUDES(connections_lock, lock_);
    // Sleeps until a lane or the control socket may be free. @return 0, EINTR or ETIMEDOUT.
    // @param deadline of all these waits of a call; made at the first wait.
    int wait_for_change(std::optional<Deadline> &deadline) REQUIRES(lock_);
    int take_granted_lane(int lane, int grant) EXCLUDES(connections_lock, lock_);
    void take_granted_words(int file) EXCLUDES(connections_lock, lock_);

    int exchange_on_lane(PooledLane &lane, PartList &send, PartList &reply, size_t &received,
                         bool &lane_is_good);
    // Reads an answer's own memory file. @return bytes placed, or -1.
    ssize_t read_own_file(const Frame &frame, Arrival &arrival, PartList &reply);
    // Reads the lane's answer file, which may have come with the answer.
    ssize_t read_answer_file(int lane, const Frame &frame, Arrival &arrival, PartList &reply,
                             bool &lane_is_good) EXCLUDES(lock_);

    // The file for a lane's long answers. Used by the thread that has the lane.
    struct LaneFile {
        int lane = -1;
        UniqueFd file;
        size_t length = 0;
    };
    LaneFile *find_file(int lane) REQUIRES(lock_);

    UniqueFd control_;
    Mutex lock_ ACQUIRED_AFTER(connections_lock);
    InterruptibleCondition changed_;
    std::array<int, IPC_LANES_MAX> lanes_ GUARDED_BY(lock_){}; // every lane's descriptor
    // The lanes not in use, last in first out.
    std::array<PooledLane, IPC_LANES_MAX> idle_ GUARDED_BY(lock_){};
    std::array<LaneFile, IPC_LANES_MAX> files_ GUARDED_BY(lock_); // of lanes that have one
    int lane_count_ GUARDED_BY(lock_) = 0;
    int idle_count_ GUARDED_BY(lock_) = 0;
    int waiters_ GUARDED_BY(lock_) = 0;
    uint64_t homes_ GUARDED_BY(lock_) = 0; // a bit for each processor that has a lane
    // The server refused a lane that was requested only so that each processor has its own; do not
    // request again.
    bool wish_refused_ GUARDED_BY(lock_) = false;
    std::atomic<bool> hands_over_{false};         // the server hands over
    bool full_ GUARDED_BY(lock_) = false;         // the server refused another lane
    bool control_busy_ GUARDED_BY(lock_) = false; // a thread uses the control socket
    // The request whose answer has not come yet; kind 0: none. Used by the thread that has the
    // control socket.
    ControlRecord owed_;
    // Made once; never replaced.
    std::shared_ptr<ConnectionWords> words_ GUARDED_BY(connections_lock);
    std::atomic<ConnectionWords *> words_in_use_{nullptr};
    std::atomic<bool> words_asked_for_{false};
    std::atomic<int> timeout_ms_{-1};
    std::atomic<State> state_{State::connected};
};

// Whether a request ended without its answer, while its connection is still usable.
inline bool is_given_up(int error) {
    return error == EINTR || error == ETIMEDOUT;
}

struct Connections {
    // By the application's number, which consists of the control socket's descriptor and the kind.
    std::unordered_map<int, std::shared_ptr<Connection>> table GUARDED_BY(connections_lock);

    static Connections &instance();

    std::shared_ptr<Connection> find(int number) EXCLUDES(connections_lock);
    // Removes a connection from the table.
    std::shared_ptr<Connection> remove(int number) EXCLUDES(connections_lock);
    // Connects, and adds the connection to the table. @return the number, or -1.
    int open(UniqueFd control, NumberKind kind) EXCLUDES(connections_lock);
};

// pulse.cpp: takes the end on which a server's pulses arrive, for a pulse connection of this
// process. @return 0 or an error number: ECONNRESET if the descriptor is not such an end.
int adopt_pulse_end(int number, const Connection &server, ForeignFd socket);

} // namespace vantro::platform

#endif
