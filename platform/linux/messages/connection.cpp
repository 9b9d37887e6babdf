// Connections: the table, the pool of lanes, and the exchanges on the control socket.
#include "platform/linux/messages/connection.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <sys/socket.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <new>
#include <utility>

#include <vantro/platform/message.h>

#include "platform/linux/base/never_destroyed.h"
#include "platform/linux/base/socket_timeout.h"
#include "platform/portable/guards.h"

namespace vantro::platform {

constinit Mutex connections_lock;

namespace {

void before_fork() ACQUIRE(connections_lock) {
    connections_lock.lock();
}
void after_fork_in_parent() RELEASE(connections_lock) {
    connections_lock.unlock();
}
void after_fork_in_child() RELEASE(connections_lock) {
    for (auto &[number, connection] : Connections::instance().table) {
        connection->abandon_in_child();
        // Never freed: its lock may be held forever, by threads that the child does not have.
        new (std::nothrow) std::shared_ptr<Connection>(connection);
    }
    connections_lock.unlock();
}

// The number of processors that may have their own lanes. If a client runs on more, they share
// these lanes.
constexpr int homes_max = 8;

// The processor on which the calling thread runs; -1 if that does not matter. It does not matter
// for a real-time thread: such a thread must not wait for a thread that other real-time threads
// keep from this processor, and must not look instead of sleeping.
int this_processor() {
    thread_local const bool is_real_time = [] {
        const KeepErrno keep;
        const int policy = ::sched_getscheduler(0) & ~SCHED_RESET_ON_FORK;
        return policy == SCHED_FIFO || policy == SCHED_RR;
    }();
    const int processor = is_real_time ? -1 : ::sched_getcpu();
    return processor < 64 ? processor : -1;
}

} // namespace

Connections &Connections::instance() {
    static Connections *const connections = [] {
        pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
        static NeverDestroyed<Connections> instance;
        return instance.get();
    }();
    return *connections;
}

std::shared_ptr<Connection> Connections::find(int number) {
    const MutexLock guard(connections_lock);
    const auto found = table.find(number);
    return found == table.end() ? nullptr : found->second;
}

std::shared_ptr<Connection> Connections::remove(int number) {
    const MutexLock guard(connections_lock);
    const auto found = table.find(number);
    if (found == table.end()) {
        return nullptr;
    }
    std::shared_ptr<Connection> connection = std::move(found->second);
    table.erase(found);
    if (table.empty()) {
        decltype(table)().swap(table); // frees its memory too: the library may be unloaded next
    }
    if (connection->abandoned()) {
        connection->give_up_number();
    }
    return connection;
}

int Connections::open(UniqueFd control, NumberKind kind) {
    const int number = make_number(kind, control.get());
    const auto connection = std::make_shared<Connection>(std::move(control));
    if (open_timeout_ms >= 0) {
        connection->set_timeout(open_timeout_ms);
    }
    {
        // Added to the table before the wait for the server, so that a child forked during the wait
        // closes its copy.
        const MutexLock guard(connections_lock);
        auto &entry = table[number];
        if (entry) {
            entry->forget_number();
        }
        entry = connection;
    }
    if (!connection->start()) {
        const KeepErrno keep;
        remove(number);
        return -1;
    }
    return number;
}

Connection::~Connection() {
    for (int i = 0; i < lane_count_; ++i) {
        close_descriptor(lanes_[static_cast<size_t>(i)]);
    }
}

void Connection::abandon_in_child() {
    if (abandoned()) {
        return;
    }
    state_ = State::abandoned;
    lock_.assume_held(); // held by a thread that the child does not have, or not held
    for (int i = 0; i < lane_count_; ++i) {
        close_descriptor(lanes_[static_cast<size_t>(i)]);
    }
    files_ = {};
    words_in_use_ = nullptr;
    if (words_) {
        words_->forget_in_child();
    }
    lane_count_ = idle_count_ = 0;
    const UniqueFd placeholder(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    if (!placeholder || ::dup3(placeholder.get(), control_.get(), O_CLOEXEC) < 0) {
        control_.reset();
    }
}

void Connection::set_timeout(int timeout_ms) {
    const MutexLock guard(lock_);
    timeout_ms_ = timeout_ms;
    set_socket_timeout(control_.get(), timeout_ms);
    for (int i = 0; i < lane_count_; ++i) {
        set_socket_timeout(lanes_[static_cast<size_t>(i)], timeout_ms);
    }
}

bool Connection::is_connected() {
    struct pollfd control = {control_.get(), 0, 0}; // poll() always reports its end
    if (state_ == State::connected && ::poll(&control, 1, 0) > 0) {
        mark_lost();
    }
    return state_ == State::connected;
}

void Connection::mark_lost() {
    state_ = State::lost;
    const MutexLock guard(lock_);
    changed_.notify_all();
}

int Connection::choose_lane(int processor) const {
    const int last = idle_count_ - 1; // the one used last
    if (!hands_over_) {
        return last;
    }
    int unclaimed = -1;
    for (int i = last; i >= 0; --i) {
        const int home = idle_[static_cast<size_t>(i)].home;
        if (home == processor) {
            return i;
        }
        unclaimed = home < 0 && unclaimed < 0 ? i : unclaimed;
    }
    if (unclaimed >= 0) {
        return unclaimed;
    }
    const bool wishes = (processor < 0 || !(homes_ >> processor & 1)) && !wish_refused_ &&
                        std::popcount(homes_) < homes_max;
    return wishes && may_grow() && !control_busy_ ? -1 : last;
}

int Connection::take_lane(int running_on, PooledLane &lane) {
    const int processor = hands_over_ ? running_on : -1;
    const MutexLock guard(lock_);
    std::optional<Deadline> deadline;
    for (;;) {
        if (state_ == State::lost) {
            return fail(ECONNRESET);
        }
        if (const int chosen = choose_lane(processor); chosen >= 0) {
            PooledLane &place = idle_[static_cast<size_t>(chosen)];
            lane = std::exchange(place, idle_[static_cast<size_t>(--idle_count_)]);
            if (lane.home < 0 && processor >= 0) {
                lane.home = processor;
                homes_ |= uint64_t{1} << processor;
            }
            return 0;
        }
        if (may_grow() && !control_busy_) {
            const int error = use_control({control_lane_request, 0});
            if (error == ECONNRESET || is_given_up(error) || (error != 0 && lane_count_ == 0)) {
                return fail(error);
            }
            full_ = error != 0; // whichever resource is short, on either side
            wish_refused_ = wish_refused_ || (full_ && idle_count_ > 0);
            continue;
        }
        if (const int error = wait_for_change(deadline); error != 0) {
            return fail(error);
        }
    }
}

int Connection::wait_for_change(std::optional<Deadline> &deadline) {
    if (!deadline) {
        deadline.emplace(timeout_ms_);
    }
    ++waiters_;
    const int error = changed_.wait(lock_, *deadline);
    --waiters_;
    return error;
}

void Connection::give_back(PooledLane lane) {
    const MutexLock guard(lock_);
    idle_[static_cast<size_t>(idle_count_++)] = lane;
    if (idle_count_ == lane_count_) {
        full_ = false; // there may be room the next time that lanes run out
    }
    if (waiters_ > 0) {
        // A thread that waits for the control socket does not need a lane, and would not wake those
        // that do.
        control_busy_ ? changed_.notify_all() : changed_.notify_one();
    }
}

void Connection::drop(PooledLane pooled) {
    const int lane = pooled.socket;
    {
        const MutexLock table_guard(connections_lock);
        const MutexLock guard(lock_);
        if (pooled.home >= 0) {
            homes_ &= ~(uint64_t{1} << pooled.home);
        }
        const auto end = lanes_.begin() + lane_count_;
        *std::find(lanes_.begin(), end, lane) = *(end - 1);
        --lane_count_;
        if (LaneFile *const file = find_file(lane)) {
            *file = {};
        }
        full_ = false;
        changed_.notify_all();
    }
    // The server learns that the exchange was given up before the caller does, though a copy of
    // this end may live on for a moment: with the server that made it, or in a forked child.
    ::shutdown(lane, SHUT_RDWR);
    close_descriptor(lane);
}

void Connection::note_speed(PooledLane &lane) const {
    if (words_asked_for_ || lane.peer < 0 || lane.user < 0 || lane.peer == lane.user) {
        return;
    }
    const int64_t now = monotonic_ns();
    lane.quick = now - std::exchange(lane.answered_at, now) < quick_ns
                     ? std::min(lane.quick + 1, quick_enough)
                     : 0;
}

Connection::LaneFile *Connection::find_file(int lane) {
    const auto found = std::find_if(files_.begin(), files_.end(),
                                    [lane](const LaneFile &each) { return each.lane == lane; });
    return found == files_.end() ? nullptr : &*found;
}

int Connection::exchange(PartList &send, PartList &reply, size_t &received) {
    const CancelDisabled no_cancel;
    if (abandoned()) {
        return fail(EBADF);
    }
    PooledLane lane;
    const int processor = this_processor();
    if (take_lane(processor, lane) != 0) {
        return -1;
    }
    lane.user = processor;
    if (lane.quick == quick_enough && !words_asked_for_ && request_words() != 0) {
        const KeepErrno keep;
        give_back(lane);
        return -1;
    }
    bool lane_is_good = false;
    const int status = exchange_on_lane(lane, send, reply, received, lane_is_good);
    const KeepErrno keep;
    if (lane_is_good) {
        note_speed(lane);
        give_back(lane);
    } else {
        drop(lane);
    }
    return status;
}

} // namespace vantro::platform

using namespace vantro::platform;

int ipc_set_timeout(int number, int timeout_ms) {
    if (timeout_ms == 0) {
        return fail(EINVAL);
    }
    const CancelDisabled no_cancel;
    const std::shared_ptr<Connection> connection = Connections::instance().find(number);
    if (!connection || connection->abandoned()) {
        return fail(EBADF);
    }
    connection->set_timeout(timeout_ms);
    return 0;
}

int ipc_connected(int number) {
    const CancelDisabled no_cancel;
    const std::shared_ptr<Connection> connection = Connections::instance().find(number);
    if (!connection || connection->abandoned()) {
        return fail(EBADF);
    }
    return connection->is_connected() ? 1 : 0;
}

int ipc_set_open_timeout(int timeout_ms) {
    return std::exchange(open_timeout_ms, timeout_ms == 0 ? 1 : timeout_ms);
}
