#include "platform/linux/messages/wait_sets.h"

#include <pthread.h>
#include <sys/eventfd.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>
#include <utility>

#include <vantro/platform/message.h>

#include "platform/linux/messages/server.h"
#include "platform/portable/guards.h"

namespace vantro::platform {

namespace {

int64_t seconds_now() {
    struct timespec now;
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return now.tv_sec;
}

bool confine_to(int processor) {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<size_t>(processor), &one);
    return ::sched_setaffinity(0, sizeof one, &one) == 0;
}

// The wait set of the calling thread, which releases it when it ends.
class Stand {
  public:
    ~Stand() { leave(); }

    int epoll_for(Channel &channel);
    // Until it next receives, the thread may run on every processor that it could use before it was
    // confined.
    void free_processor();
    void leave();
    // In a child of fork: there is nothing to release.
    void forget();

  private:
    void take(Channel &channel) EXCLUDES(server_lock);
    bool stay();

    int channel_ = 0; // its number; 0: no wait set
    std::weak_ptr<Channel> kept_;
    int epoll_ = -1;
    int processor_ = -1; // -1: the floating wait set
    bool confined_ = false;
    cpu_set_t allowed_; // before it was confined
    int64_t confined_at_ = 0;
};

thread_local Stand stand;

int Stand::epoll_for(Channel &channel) {
    const bool is_good = channel_ == channel.number &&
                         (processor_ < 0 || (!channel.wait_sets.needs_floating() && stay()));
    if (!is_good) {
        leave();
        take(channel);
    }
    return epoll_;
}

// Ensures that the thread is on its processor. An administrator or the program itself may have
// moved it. @return false if it cannot stay there.
bool Stand::stay() {
    if (confined_ && ::sched_getcpu() == processor_) {
        return true;
    }
    const int64_t now = seconds_now();
    if (confined_ && now == confined_at_) {
        return true; // moved a moment ago: not again within a second
    }
    confined_at_ = now;
    confined_ = confine_to(processor_);
    return confined_;
}

void Stand::take(Channel &channel) {
    CPU_ZERO(&allowed_);
    if (::sched_getaffinity(0, sizeof allowed_, &allowed_) != 0) {
        CPU_ZERO(&allowed_); // more processors than fit: the thread floats
    }
    {
        const MutexLock guard(server_lock);
        const auto found = Server::instance().channels.find(channel.number);
        if (found == Server::instance().channels.end()) {
            epoll_ = channel.wait_sets.floating(); // the channel is destroyed; this set reports it
            return;
        }
        kept_ = found->second;
        channel_ = channel.number;
        epoll_ = channel.wait_sets.take(allowed_, processor_);
    }
    confined_ = false;
    if (processor_ >= 0 && !stay()) {
        CPU_ZERO(&allowed_);
        const MutexLock guard(server_lock);
        channel.wait_sets.leave(processor_);
        epoll_ = channel.wait_sets.take(allowed_, processor_);
    }
}

void Stand::leave() {
    if (channel_ == 0) {
        return;
    }
    {
        const std::shared_ptr<Channel> channel = kept_.lock();
        const MutexLock guard(server_lock);
        if (channel) {
            channel->wait_sets.leave(processor_);
        }
    }
    forget();
}

void Stand::forget() {
    free_processor();
    kept_.reset();
    channel_ = 0;
    processor_ = -1;
}

void Stand::free_processor() {
    if (std::exchange(confined_, false)) {
        ::sched_setaffinity(0, sizeof allowed_, &allowed_);
    }
}

// A child of a confined thread is not confined: it may execute another program.
void after_fork_in_child() {
    stand.forget();
}

} // namespace

int my_wait_set(Channel &channel) {
    return channel.wait_sets.hands_over() ? stand.epoll_for(channel) : channel.wait_sets.floating();
}

bool WaitSets::make() {
    shared_.reset(::epoll_create1(EPOLL_CLOEXEC));
    return static_cast<bool>(shared_);
}

bool WaitSets::hand_over(uint64_t end_data) {
    static const int prepared = ::pthread_atfork(nullptr, nullptr, after_fork_in_child);
    if (prepared != 0) {
        return fail(prepared) == 0;
    }
    end_.reset(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    end_watched_ = {EPOLLIN, end_data, -1};
    if (!end_ || !add(shared_.get(), end_.get(), end_watched_)) {
        return false;
    }
    hands_over_ = true;
    return true;
}

bool WaitSets::add(int epoll, int fd, const WatchedSocket &watched) const {
    struct epoll_event event = {};
    event.events = watched.events;
    if (hands_over_ && fd != end_.get()) {
        event.events = (event.events & ~uint32_t{EPOLLRDHUP}) | EPOLLEXCLUSIVE;
    }
    event.data.u64 = watched.data;
    return ::epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event) == 0;
}

bool WaitSets::watch(int fd, const WatchedSocket &watched) {
    if (!hands_over_) {
        return add(shared_.get(), fd, watched);
    }
    try {
        watched_[fd] = watched;
    } catch (const std::bad_alloc &) {
        return fail(ENOMEM) == 0;
    }
    return add_everywhere(fd, watched);
}

// The home's wait set comes first.
bool WaitSets::add_everywhere(int fd, const WatchedSocket &watched) {
    const auto is_home = [&](const WaitSet &set) { return set.processor == watched.home; };
    bool good = true;
    for (const WaitSet &set : sets_) {
        good = good && (!is_home(set) || add(set.epoll.get(), fd, watched));
    }
    good = good && add(shared_.get(), fd, watched);
    for (const WaitSet &set : sets_) {
        good = good && (is_home(set) || add(set.epoll.get(), fd, watched));
    }
    if (!good) {
        const KeepErrno keep;
        unwatch(fd);
    }
    return good;
}

bool WaitSets::watch_again(int fd, const WatchedSocket &watched) {
    if (hands_over_) {
        const WatchedSocket copy = watched; // the reference may be to the removed element
        unwatch(fd);
        return watch(fd, copy);
    }
    struct epoll_event event = {};
    event.events = watched.events;
    event.data.u64 = watched.data;
    return ::epoll_ctl(shared_.get(), EPOLL_CTL_MOD, fd, &event) == 0;
}

// Closing is not enough: a copy of the descriptor in another process would keep the watch and its
// events.
void WaitSets::unwatch(int fd) {
    pause(fd);
    watched_.erase(fd);
}

void WaitSets::pause(int fd) {
    ::epoll_ctl(shared_.get(), EPOLL_CTL_DEL, fd, nullptr);
    for (const WaitSet &set : sets_) {
        ::epoll_ctl(set.epoll.get(), EPOLL_CTL_DEL, fd, nullptr);
    }
}

bool WaitSets::resume(int fd, const WatchedSocket &watched) {
    pause(fd); // a wait set that was made meanwhile may watch it
    const auto found = watched_.find(fd);
    return hands_over_ ? found != watched_.end() && add_everywhere(fd, WatchedSocket(found->second))
                       : add(shared_.get(), fd, watched);
}

bool WaitSets::set_home(int fd, int home) {
    const auto found = watched_.find(fd);
    if (found == watched_.end()) {
        return true;
    }
    found->second.home = home;
    const bool has_set = std::any_of(sets_.begin(), sets_.end(),
                                     [home](const WaitSet &set) { return set.processor == home; });
    return !has_set || watch_again(fd, found->second);
}

void WaitSets::report_again(uint64_t data) {
    const auto told = std::find_if(watched_.begin(), watched_.end(),
                                   [data](const auto &each) { return each.second.data == data; });
    if (told != watched_.end() && !watch_again(told->first, told->second)) {
        Server::instance().give_up(Source::unpack(data));
    }
}

void WaitSets::end() {
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(end_.get(), &one, sizeof one);
}

int WaitSets::take(const cpu_set_t &allowed, int &processor) {
    processor = -1;
    for (int each = 0; floating_ > 0 && each < CPU_SETSIZE; ++each) {
        const bool is_free = CPU_ISSET(static_cast<size_t>(each), &allowed) &&
                             std::none_of(sets_.begin(), sets_.end(), [each](const WaitSet &set) {
                                 return set.processor == each;
                             });
        if (!is_free) {
            continue;
        }
        if (const int epoll = take_processor(each); epoll >= 0) {
            processor = each;
            return epoll;
        }
        break; // memory or descriptors are short: the thread can float instead
    }
    ++floating_;
    return shared_.get();
}

// @return the new wait set, or -1.
int WaitSets::take_processor(int processor) {
    WaitSet set = {UniqueFd(::epoll_create1(EPOLL_CLOEXEC)), processor};
    const int epoll = set.epoll.get();
    if (epoll < 0 || !add(epoll, end_.get(), end_watched_)) {
        return -1;
    }
    for (const auto &[fd, watched] : watched_) {
        if (!add(epoll, fd, watched)) {
            return -1;
        }
    }
    try {
        sets_.push_back(std::move(set));
    } catch (const std::bad_alloc &) {
        return -1;
    }
    ++generation_;
    return epoll;
}

void WaitSets::leave(int processor) {
    if (processor < 0) {
        --floating_;
        return;
    }
    const auto found = std::find_if(sets_.begin(), sets_.end(), [processor](const WaitSet &set) {
        return set.processor == processor;
    });
    const UniqueFd epoll = std::move(found->epoll);
    sets_.erase(found);
    ++generation_;
    // Without the channel's end: every wait set gets that event, and it never disappears.
    ::epoll_ctl(epoll.get(), EPOLL_CTL_DEL, end_.get(), nullptr);
    for (size_t left = watched_.size(); left > 0; --left) {
        struct epoll_event event;
        if (::epoll_wait(epoll.get(), &event, 1, 0) != 1) {
            break;
        }
        report_again(event.data.u64);
    }
}

void WaitSets::close_in_child() {
    shared_.reset();
    end_.reset();
    sets_.clear();
}

} // namespace vantro::platform

int channel_hand_over(int number) {
    using namespace vantro::platform;
    using vantro::MutexLock;
    const MutexLock guard(server_lock);
    const auto found = Server::instance().channels.find(number);
    if (found == Server::instance().channels.end()) {
        return fail(EBADF);
    }
    Channel &channel = *found->second;
    if (channel.wait_sets.hands_over()) {
        return 0;
    }
    if (!channel.listeners.empty() || channel.pulse_receive) {
        return fail(EBUSY);
    }
    channel.wait_sets.unwatch(channel.wake.get());
    const bool done = channel.wait_sets.hand_over(Source{Source::channel_end}.pack());
    const KeepErrno keep;
    channel.wait_sets.watch(channel.wake.get(), wake_watched);
    return done ? 0 : -1;
}

void channel_free_processor(void) {
    vantro::platform::stand.free_processor();
}
