/*
 * The sending side of a process: its connections and their pools of lanes.
 *
 * Invariants
 *  - `Connections::lock` guards the table, and `Connection::lock` one connection's pool; neither
 *    is held across a system call that can block. The table's comes first where both are taken.
 *  - A thread takes a lane for one exchange and gives it back. An exchange that was interrupted
 *    closes its lane, so that its answer can never be taken for another's.
 *  - The control socket has at most one request unanswered. An interrupted wait leaves it owed;
 *    whoever uses the control socket next collects that answer first.
 */
#ifndef VANTRO_PLATFORM_LINUX_CONNECTION_H
#define VANTRO_PLATFORM_LINUX_CONNECTION_H

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>

#include <vantro/platform/limits.h>

#include "platform/linux/unique_fd.h"
#include "platform/linux/wire.h"

namespace vantro::platform {

class Connection {
  public:
    explicit Connection(UniqueFd control) : control_(std::move(control)) {}
    ~Connection();

    /** Waits for the first lane, which the server gives unasked. */
    bool start();

    /** One exchange; see ipc_send(). */
    int exchange(PartList &send, PartList &reply);

    int control() const { return control_.get(); }

    /** In a child of fork: closes the copies of the parent's sockets. */
    void abandon_in_child();
    bool abandoned() const { return abandoned_; }

    /** The control socket's number belongs to the host again. */
    int release_control() { return control_.release(); }

  private:
    int take_lane();
    void give_back(int lane);
    void drop(int lane);
    void mark_dead();

    int announce_pulses();
    int request_lane(std::unique_lock<std::mutex> &guard);
    /** One request and its answer on the control socket. @return 0 or an error number. */
    int ask(ControlKind kind, int value, int descriptor);
    int collect();

    int converse(int lane, PartList &send, PartList &reply, bool &lane_is_good);

    UniqueFd control_;
    std::mutex lock_;
    std::condition_variable changed_;
    std::array<int, IPC_LANES_MAX> lanes_{}; /* every lane's descriptor */
    std::array<int, IPC_LANES_MAX> idle_{};  /* those not in use, last in first out */
    int lane_count_ = 0;
    int idle_count_ = 0;
    int waiters_ = 0;
    bool full_ = false;         /* the server refused one more */
    bool control_busy_ = false; /* a thread uses the control socket */
    uint32_t owed_ = 0;         /* kind of the request whose answer is still to come */
    std::atomic<bool> dead_{false};
    bool abandoned_ = false;
    std::atomic<int> announced_{0}; /* the newest pulse connection that the server knows */
};

struct Connections {
    std::mutex lock;
    std::unordered_map<int, std::shared_ptr<Connection>> table; /* by control descriptor */

    static Connections &instance();

    /** Finds by the number that the application holds, a descriptor or a global name's. */
    std::shared_ptr<Connection> find(int number);
    /** Takes out of the table. */
    std::shared_ptr<Connection> remove(int descriptor);
    /** Connects, and enters into the table. @return the control descriptor, or -1. */
    int open(UniqueFd control);
};

/* pulse.cpp */
/** The newest pulse connection of this process. */
int newest_pulse_connection();
/** The next live pulse connection above a number. @return 0 when there is none. */
int next_pulse_connection(int above, std::shared_ptr<UniqueFd> &send_end);

} // namespace vantro::platform

#endif
