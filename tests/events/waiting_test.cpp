// Waiting for events, and every way in which a wait ends.
#include <poll.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <optional>
#include <random>
#include <thread>
#include <vector>

#include <vantro/extras.h>

#include "tests/support/player_follower.h"
#include "tests/support/process.h"

namespace vantro::events {
namespace {

// Waits for an event of this object and gets it. Other events are ignored.
const VantroEvent *wait_for(VantroHandle *handle, const std::string &object) {
    for (;;) {
        const VantroEvent *event = vantro_event_get(handle);
        if (!event || (event->object_name && event->object_name == object)) {
            return event;
        }
        if (!event->object_name && vantro_event_wait(handle) != 0) {
            return nullptr;
        }
    }
}

class Waiting : public Events {
  protected:
    // A second thread waits until `leave`, called as often as that takes, has made it leave.
    // @return the wait's result, or -2 if it did not return.
    template <class Leave>
    int wait_beside(Leave leave) {
        while (vantro_event_get(handle)->object_name) {
            continue;
        }
        std::atomic<bool> left{false};
        int result = -2;
        std::thread thread([&] {
            struct AtTheEnd {
                std::atomic<bool> &left;
                ~AtTheEnd() { left = true; }
            } const at_the_end{left};
            const int returned = vantro_event_wait(handle);
            EXPECT_TRUE(returned == 0 || errno == EINTR);
            result = returned;
        });
        for (; !left; sched_yield()) {
            leave(thread.native_handle());
        }
        thread.join();
        publish("x", "a", "1");
        EXPECT_EQ(vantro_event_wait(handle), 0);
        EXPECT_EQ(next(), "7 x {a=1}");
        return result;
    }
};

TEST_F(Waiting, ReturnsAtOnceWhereThereIsSomething) {
    start_publishing();
    publish("x", "a", "1");
    EXPECT_EQ(vantro_event_wait(handle), 0); // Unread, and no queue before.
    publish("y", "a", "1");
    EXPECT_EQ(next(), "7 x {a=1}");
    EXPECT_EQ(vantro_event_wait(handle), 0); // Queued.
    EXPECT_EQ(next(), "7 y {a=1}");
    publish("state", "rate", "2");
    EXPECT_EQ(vantro_event_wait(handle), 0); // Unread.
    EXPECT_EQ(next(), "3 state 1/2/0/0 was 1/1/0/0");
    EXPECT_EQ(next(), "7");
    stop_publishing();
    EXPECT_EQ(vantro_event_wait(handle), 0); // Nobody publishes any more.
    EXPECT_EQ(next(), "failed");
}

// A call first reads the file of "state" and then the file of all objects. Changes published in
// between are read all at once from the file of all objects, and one change for each call from the
// file of "state".
TEST_F(Waiting, ReturnsAtOnceWhileAChangeOfStateIsUnread) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, nullptr); // Interrupts a wait that sleeps.
    const struct {
        Lines published; // While the objects are read.
        Lines events;
        Lines said;
    } cases[] = {
        {{"@state\nrate::2\n", "@state\nrate::3\n"},
         {"3 state 1/2/0/0 was 1/1/0/0", "3 state 1/3/0/0 was 1/2/0/0"},
         {}},
        // Reading the objects fails after "state" was read.
        {{"@state\nrate::4\n", "-@y\nmalformed\n"},
         {"failed", "3 state 1/4/0/0 was 1/3/0/0"},
         {"3 We got a parsing error"}},
        // What the first change says cannot be understood.
        {{"@state\nmalformed\n", "@state\nrate::5\n"},
         {"failed", "3 state 1/5/0/0 was 1/4/0/0"},
         {"3 We got a parsing error"}},
    };
    RawPublisher raw;
    ASSERT_EQ(next(), "7");
    for (const auto &[published, events, said] : cases) {
        on_line = [&raw, &published = published] {
            std::for_each(published.begin(), published.end(),
                          [&raw](const std::string &text) { raw.publish(text); });
        };
        raw.publish("-@x\na::1\n"); // Logs a line while it is applied.
        Lines expected_lines = {"3 dict is null and please investigate"};
        expected_lines.insert(expected_lines.end(), said.begin(), said.end());
        for (const std::string &event : events) {
            alarm(2);
            EXPECT_EQ(vantro_event_wait(handle), 0);
            alarm(0);
            EXPECT_EQ(next(), event);
        }
        EXPECT_EQ(take_lines(), expected_lines);
        EXPECT_EQ(next(), "7");
    }
}

TEST_F(Waiting, IsLeftByAPublishASignalOrTheThreadsEnd) {
    start_publishing();
    EXPECT_EQ(wait_beside([this](pthread_t) { publish("x", "a", "1"); }), 0);

    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, nullptr);
    EXPECT_EQ(wait_beside([](pthread_t thread) { pthread_kill(thread, SIGUSR1); }), -1);

    EXPECT_EQ(wait_beside(pthread_cancel), -2);

    EXPECT_EQ(wait_beside([this](pthread_t) { vantro_event_wake(handle); }), 0);
}

TEST_F(Waiting, EndsWhenTheTimeIsOverOrAWakeCameBefore) {
    EXPECT_EQ(vantro_event_wake(handle), 0); // Before there is anything to wait for.
    start_publishing();
    EXPECT_EQ(vantro_event_wait_for(handle, -1), 1);
    EXPECT_EQ(vantro_event_wait_for(handle, 0), 0);
    EXPECT_EQ(vantro_event_wait_for(handle, 20), 0);
    publish("x", "a", "1");
    EXPECT_EQ(vantro_event_wait_for(handle, -1), 1);
    EXPECT_EQ(next(), "7 x {a=1}");
    vantro_close(handle, "main");
    for (VantroHandle *const bad : {static_cast<VantroHandle *>(nullptr), handle}) {
        errno = 0;
        EXPECT_EQ(vantro_event_wait_for(bad, 0), -1);
        EXPECT_EQ(errno, EINVAL);
        EXPECT_EQ(vantro_event_fd(bad), -1);
    }
    EXPECT_EQ(vantro_event_wake(nullptr), -1);
    EXPECT_EQ(take_lines(), Lines(4, "3 Invalid vantro handle"));
}

TEST_F(Waiting, TheDescriptorIsReadableExactlyWhileThereIsSomething) {
    std::optional<RawPublisher> raw(std::in_place);
    raw->publish("@state\nrate::1\n");
    EXPECT_EQ(next(), "7 state 1/1/0/0 {rate=1}");
    vantro_event_wake(handle);
    const int descriptor = vantro_event_fd(handle);
    ASSERT_GE(descriptor, 0);
    EXPECT_EQ(vantro_event_fd(handle), descriptor);
    const auto is_readable = [descriptor] {
        struct pollfd file = {descriptor, POLLIN, 0};
        return poll(&file, 1, 0) == 1;
    };
    // Gets all events, each only after the descriptor has announced it.
    const auto follow = [&] {
        Lines events;
        while (events.size() < 10 && is_readable()) {
            events.push_back(next());
        }
        return events;
    };
    EXPECT_EQ(follow(), (Lines{"7"})); // For the wake-up; "state" was already reported.
    const struct {
        Lines published;
        Lines events;
    } cases[] = {
        {{"@x\na::1\n"}, {"7 x {a=1}"}},
        {{"@x\na::2\n", "@y\na::1\n"}, {"7 x {a=2}", "7 y {a=1}"}},
        {{"@state\nrate::2\n"}, {"3 state 1/2/0/0 was 1/1/0/0"}},
        {{"@x\na::3\n", "@state\nrate::1\n", "@x\na::4\n"},
         {"3 state 1/1/0/0 was 1/2/0/0", "7 x {a=3}", "7 x {a=4}"}},
        {{"-@x\nmalformed\n", "@y\na::2\n"}, {"failed", "7 y {a=2}"}},
    };
    for (const auto &[published, events] : cases) {
        std::for_each(published.begin(), published.end(),
                      [&](const std::string &text) { raw->publish(text); });
        EXPECT_EQ(follow(), events) << published.front();
        EXPECT_EQ(next(), "7");
    }
    vantro_event_wake(handle);
    EXPECT_EQ(follow(), (Lines{"7"}));
    EXPECT_EQ(vantro_event_wait_for(handle, 0), 0);
    // Changes of "state" that come after "state" was read and before the objects are read.
    on_line = [&raw] {
        raw->publish("@state\nrate::2\n");
        raw->publish("@state\nrate::3\n");
    };
    raw->publish("-@y\na::1\n"); // Logs a line while it is applied.
    EXPECT_EQ(follow(), (Lines{"3 state 1/2/0/0 was 1/1/0/0", "3 state 1/3/0/0 was 1/2/0/0"}));
    raw.reset();
    for (int i = 0; i < 3; i++) { // Permanently.
        EXPECT_TRUE(is_readable());
        EXPECT_EQ(next(), "failed");
    }
    take_lines();
}

// More than a user has inotify instances.
TEST_F(Waiting, HundredsOfHandlesOfOneProcessWait) {
    constexpr int count = 300;
    constexpr rlim_t descriptors = count * 10; // the server's are this process's as well
    struct rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::min(limit.rlim_max, std::max(limit.rlim_cur, descriptors));
    setrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_cur < descriptors) {
        GTEST_SKIP() << "only " << limit.rlim_cur << " descriptors";
    }
    start_publishing();
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    threads.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; i++) {
        threads.emplace_back([&] {
            VantroHandle *const mine = vantro_connect();
            EXPECT_EQ(vantro_open(mine, "main"), 0);
            const VantroEvent *const first = vantro_event_get(mine);
            EXPECT_TRUE(first && !first->object_name);
            ready++;
            for (const char *object : {"x", "y"}) {
                EXPECT_NE(wait_for(mine, object), nullptr);
            }
            vantro_disconnect(mine);
        });
    }
    while (ready < count) {
        sched_yield();
    }
    publish("x", "a", "1");
    publish("y", "a", "1");
    for (std::thread &thread : threads) {
        thread.join();
    }
}

TEST_F(Waiting, TwoThreadsFollowTwoPlayers) {
    start_publishing();
    object_publisher *const other = object_publisher_open("/kivo/services/vantro/other");
    constexpr int last = 2000;
    const auto follow = [](VantroHandle *with) {
        for (int position = 0; position < last;) {
            const VantroEvent *event = wait_for(with, "status");
            ASSERT_NE(event, nullptr);
            ASSERT_GT(event->details.status.position, position);
            position = event->details.status.position;
        }
    };
    std::thread one(follow, handle);
    std::thread two([&] {
        VantroHandle *second = vantro_connect();
        EXPECT_EQ(vantro_open(second, "other"), 0);
        follow(second);
        vantro_disconnect(second);
    });
    for (int i = 1; i <= last; i++) {
        for (object_publisher *to : {publisher, other}) {
            events::publish(to, "status", "position", std::to_string(i).c_str());
        }
    }
    one.join();
    two.join();
    object_publisher_close(other);
}

TEST_F(Waiting, CancellationThatIsPendingComesAfterWhatThereIs) {
    start_publishing();
    publish("x", "a", "1");
    int result = -2;
    std::thread([&] {
        pthread_cancel(pthread_self());
        result = vantro_event_wait(handle);
        pthread_testcancel();
        result = -3;
    }).join();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(next(), "7 x {a=1}");
}

// Publishes, from another process, whenever it is sent a signal.
int publish_when_told() {
    sigset_t go;
    sigemptyset(&go);
    sigaddset(&go, SIGUSR1);
    sigprocmask(SIG_BLOCK, &go, nullptr);
    object_publisher *here = object_publisher_open(player_directory);
    publish(here, "ready", "a", "1");
    std::puts("ready");
    std::fflush(stdout);
    for (int i = 1; sigwaitinfo(&go, nullptr) > 0;) {
        for (int end = i + 500; i < end; i++) {
            publish(here, "x", "a", std::to_string(i).c_str());
        }
    }
    return 0;
}

TEST_F(Waiting, FollowsAnotherProcessToItsDeath) {
    std::mt19937 random(3);
    for (int turn = 0; turn < 100; turn++) {
        test::Process process(publish_when_told);
        ASSERT_EQ(process.line(), "ready");
        ASSERT_EQ(told(wait_for(handle, "ready")), "7 ready {a=1}");
        // Killed while it publishes: what it published is reported in order, and then that it is
        // gone.
        const int killed_at = 1 + static_cast<int>(random() % 1000);
        int i = 0;
        process.kill(SIGUSR1);
        while (const VantroEvent *event = wait_for(handle, "x")) {
            ASSERT_EQ(told(event), "7 x {a=" + std::to_string(++i) + "}");
            if (i == 500) {
                process.kill(SIGUSR1);
            }
            if (i == killed_at) {
                process.kill(SIGKILL);
            }
        }
        EXPECT_EQ(errno, ESTALE);
        EXPECT_GE(i, killed_at);
        EXPECT_EQ(vantro_close(handle, "main"), 0);
        EXPECT_EQ(vantro_open(handle, "main"), 0);
    }
}

} // namespace
} // namespace vantro::events
