// Handles that outlive the service: by poll in one thread, and by waiting.
#include <malloc.h>
#include <poll.h>
#include <sys/timerfd.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <vantro/platform/log.h>

#include "tests/service/vantrod.h"
#include "tests/support/processors.h"

namespace vantro::service {
namespace {

long open_files() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
}

class Reconnect : public Vantrod {
  protected:
    void SetUp() override {
        Vantrod::SetUp();
        std::filesystem::create_directory(path_ + "/music");
        run();
    }
    void run() {
        start({"--music", path_ + "/music", "--player", "main", "--player", "kitchen"});
        ASSERT_EQ(told().rfind("vantrod: ready (", 0), 0u);
    }
    void end(int signal) {
        service->kill(signal);
        service->wait();
    }
    // A handle that reconnects, with this player open.
    static VantroHandle *open(const char *name) {
        VantroHandle *const handle = vantro_connect_timed(20'000);
        EXPECT_EQ(vantro_open(handle, name), 0);
        EXPECT_EQ(vantro_set_reconnect(handle, VANTRO_RECONNECT_ON), 0);
        return handle;
    }
    static int32_t reason() { return vantro_last_failure(nullptr); }
};

struct Followed {
    VantroHandle *handle;
    int descriptor;
    int returns = 0;
    int32_t repeat = -1;
    int32_t shuffle = -1;
    bool in_picture = false; // "state" has been reported since the last return

    void take_events() {
        for (;;) {
            const VantroEvent *const event = vantro_event_get(handle);
            ASSERT_NE(event, nullptr) << errno;
            if (event->type == VANTRO_EVENT_NONE && !event->object_name) {
                return;
            }
            if (event->object_name == std::string(VANTRO_OBJECT_RECONNECTED)) {
                ASSERT_NE(event->dict, nullptr);
                ++returns;
                in_picture = false;
            }
            if (event->object_name == std::string("state")) {
                in_picture = true;
                repeat = event->repeat;
                shuffle = event->shuffle;
            }
        }
    }
};

// One thread that waits for two players and a timer.
class PollLoop {
  public:
    PollLoop(VantroHandle *first, VantroHandle *second)
        : players{Followed{first, vantro_event_fd(first)},
                  Followed{second, vantro_event_fd(second)}} {
        const itimerspec often = {{0, 10'000'000}, {0, 10'000'000}};
        timerfd_settime(timer_, 0, &often, nullptr);
        files_[0] = {timer_, POLLIN, 0};
        for (size_t i = 0; i < players.size(); ++i) {
            EXPECT_GE(players[i].descriptor, 0) << std::strerror(errno);
            files_[i + 1] = {players[i].descriptor, POLLIN, 0};
        }
    }
    PollLoop(const PollLoop &) = delete;
    PollLoop &operator=(const PollLoop &) = delete;
    ~PollLoop() { close(timer_); }

    // Runs until `done`, or for `most` ticks of 10 ms. @return how often a player's descriptor
    // was readable.
    int run(const std::function<bool()> &done, uint64_t most = 6'000) {
        int readable = 0;
        for (uint64_t ticks = 0; !done() && ticks < most;) {
            EXPECT_GT(poll(files_.data(), files_.size(), -1), 0);
            for (size_t i = 0; i < players.size(); ++i) {
                if (files_[i + 1].revents != 0) {
                    ++readable;
                    players[i].take_events();
                }
            }
            uint64_t expired = 0;
            if (read(timer_, &expired, sizeof expired) == sizeof expired) {
                ticks += expired;
            }
        }
        return readable;
    }

    // Changes both players' modes, and expects an event of each change.
    void change_and_follow(int round) {
        const int32_t repeat = 1 + round % 2;
        const int32_t shuffle = round / 2 % 2;
        for (const Followed &player : players) {
            ASSERT_EQ(vantro_repeat(player.handle, repeat), 0) << round;
            ASSERT_EQ(vantro_shuffle(player.handle, shuffle), 0) << round;
        }
        run([&] {
            return players[0].repeat == repeat && players[1].repeat == repeat &&
                   players[0].shuffle == shuffle && players[1].shuffle == shuffle;
        });
        for (const Followed &player : players) {
            ASSERT_TRUE(player.in_picture) << round;
            ASSERT_EQ(player.returns, round);
            ASSERT_EQ(player.repeat, repeat) << round;
            ASSERT_EQ(player.shuffle, shuffle) << round;
        }
    }

    std::array<Followed, 2> players;

  private:
    const int timer_ = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
    std::array<pollfd, 3> files_ = {};
};

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int restarts = 12;
#else
constexpr int restarts = 100;
#endif
// The heap's smallest block has 32 bytes, so a leak in every round is larger than this.
constexpr size_t bytes_a_round = 24;

// The variable VANTRO_ROUNDS can set another number of restarts.
TEST_F(Reconnect, FollowsTwoPlayersAndATimerOverEveryRestart) {
    // A connection uses more descriptors if its thread moves between processors.
    cpu_set_t before;
    sched_getaffinity(0, sizeof before, &before);
    test::run_on(sched_getcpu());
    const char *const wanted = std::getenv("VANTRO_ROUNDS");
    const int rounds = wanted ? std::atoi(wanted) : restarts;
    PollLoop loop(open("main"), open("kitchen"));
    auto &players = loop.players;
    const auto never = [] { return false; };
    long files_open = 0;
    size_t bytes = 0;
    for (int round = 0; round < rounds; ++round) {
        ASSERT_NO_FATAL_FAILURE(loop.change_and_follow(round));
        if (round == 1) {
            files_open = open_files();
            bytes = mallinfo2().uordblks;
        } else if (round > 1) {
            ASSERT_EQ(open_files(), files_open) << round;
        }
        end(round % 2 == 0 ? SIGKILL : SIGTERM);
        // The kernel closes some files of a process after its end.
        int calm = 0;
        while (loop.run(never, 10) > 0 && ++calm < 50) {
        }
        EXPECT_LT(calm, 50) << "woken while nothing happens";
        EXPECT_EQ(vantro_play(players[0].handle), -1);
        EXPECT_EQ(reason(), VANTRO_FAILURE_GONE);
        run();
        loop.run([&] { return players[0].returns > round && players[1].returns > round; });
        ASSERT_EQ(vantro_event_fd(players[0].handle), players[0].descriptor);
    }
    EXPECT_LT(mallinfo2().uordblks, bytes + static_cast<size_t>(rounds) * bytes_a_round);
    for (const Followed &player : players) {
        EXPECT_EQ(vantro_disconnect(player.handle), 0);
    }
    sched_setaffinity(0, sizeof before, &before);
}

// Threads that find the service gone connect again at the same time, and a line that they log may
// reach a sink that uses the same handle.
TEST_F(Reconnect, ThreadsAndTheLogUseOneHandle) {
    static VantroHandle *handle = nullptr;
    handle = open("main");
    static thread_local bool is_logging = false;
    static std::atomic<int> logged = 0;
    system_log_set_sink(
        [](uint32_t, int, const char *, void *) {
            if (!std::exchange(is_logging, true)) {
                ++logged;
                vantro_pause(handle);
                vantro_set_timeout(handle, 10'000);
                is_logging = false;
            }
        },
        nullptr);
    for (int round = 0; round < 4; ++round) {
        end(SIGKILL);
        std::vector<std::thread> threads;
        std::atomic<int> failed = 0;
        threads.reserve(4);
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&] {
                while (vantro_repeat(handle, VANTRO_REPEAT_ALL) != 0) {
                    ++failed;
                }
            });
        }
        while (failed < 8) {
            std::this_thread::yield();
        }
        run();
        for (std::thread &thread : threads) {
            thread.join();
        }
    }
    EXPECT_GT(logged, 0);
    system_log_set_sink(nullptr, nullptr);
    vantro_disconnect(handle);
}

// A wait lasts while the service is away, ends by time, wake and return, and a handle that is
// closed meanwhile can be used again.
TEST_F(Reconnect, WaitsForTheService) {
    VantroHandle *const handle = open("main");
    const auto drain = [&] {
        const VantroEvent *event = nullptr;
        bool returned = false;
        while ((event = vantro_event_get(handle)) &&
               (event->type != VANTRO_EVENT_NONE || event->object_name)) {
            returned = returned || event->object_name == std::string(VANTRO_OBJECT_RECONNECTED);
        }
        EXPECT_NE(event, nullptr);
        return returned;
    };
    EXPECT_FALSE(drain());
    end(SIGKILL);
    EXPECT_EQ(vantro_event_wait_for(handle, 20'000), 1);
    EXPECT_FALSE(drain());
    EXPECT_EQ(vantro_event_wait_for(handle, 20), 0);
    std::thread waking([&] { vantro_event_wake(handle); });
    EXPECT_EQ(vantro_event_wait_for(handle, 20'000), 1);
    waking.join();
    EXPECT_FALSE(drain());
    // The directory of its objects is removed, and made again.
    std::filesystem::remove_all(path_ + "/vantro");
    bool returned = false;
    std::thread waiting([&] {
        for (int i = 0; i < 100 && !returned; ++i) {
            EXPECT_EQ(vantro_event_wait(handle), 0);
            returned = drain();
        }
    });
    run();
    waiting.join();
    EXPECT_TRUE(returned);
    EXPECT_EQ(vantro_jump(handle, 5), -1); // there is no track
    EXPECT_EQ(reason(), VANTRO_FAILURE_REFUSED);
    end(SIGKILL);
    EXPECT_EQ(vantro_close(handle, "main"), 0);
    EXPECT_EQ(vantro_open(handle, "kitchen"), -1);
    EXPECT_EQ(reason(), VANTRO_FAILURE_GONE);
    run();
    EXPECT_EQ(vantro_open(handle, "kitchen"), 0);
    EXPECT_FALSE(drain());
    // If the player cannot be opened again, the failure says so.
    end(SIGTERM);
    start({"--music", path_ + "/music", "--player", "main"});
    ASSERT_EQ(told().rfind("vantrod: ready (", 0), 0u);
    VantroStateInfo *state = nullptr;
    EXPECT_EQ(vantro_get_current_state(handle, &state), -1);
    EXPECT_EQ(reason(), VANTRO_FAILURE_REFUSED);
    EXPECT_EQ(vantro_set_reconnect(handle, 2), -1);
    EXPECT_EQ(errno, EINVAL);
    vantro_disconnect(handle);
}

TEST_F(Reconnect, TheLimitBoundsConnectingAgain) {
    VantroHandle *const handle = open("main");
    end(SIGKILL);
    run();
    service->stop();
    ASSERT_EQ(vantro_set_timeout(handle, 20), 0);
    EXPECT_EQ(vantro_repeat(handle, VANTRO_REPEAT_ALL), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_EQ(reason(), VANTRO_FAILURE_TIMED_OUT);
    service->kill(SIGCONT);
    ASSERT_EQ(vantro_set_timeout(handle, 20'000), 0);
    EXPECT_EQ(vantro_repeat(handle, VANTRO_REPEAT_ALL), 0);
    vantro_disconnect(handle);
}

} // namespace
} // namespace vantro::service
