// Channels that hand over: which thread serves which client, and where threads run. The other tests
// of this folder run once more on such channels.
#include <sys/wait.h>

#include <condition_variable>
#include <mutex>
#include <set>

#include "tests/platform/support.h"
#include "tests/support/processors.h"

namespace vantro::test {
namespace {

class HandOver : public testing::Test {
  protected:
    void SetUp() override {
        if (processors() < 2) {
            GTEST_SKIP() << "there is one processor";
        }
        handing_over = true;
    }
    void TearDown() override { handing_over = handing_over_always(); }

    const RuntimeDirectory runtime_;
};

TEST_F(HandOver, IsToBeAskedForFirst) {
    EXPECT_EQ(channel_hand_over(12345), -1);
    EXPECT_EQ(errno, EBADF);
    const int channel = channel_create(0);
    EXPECT_EQ(channel_hand_over(channel), 0);
    EXPECT_EQ(channel_hand_over(channel), 0);
    channel_destroy(channel);
    const int late = channel_create(0);
    connect_attach(0, 0, late, 0, 0);
    EXPECT_EQ(channel_hand_over(late), -1);
    EXPECT_EQ(errno, EBUSY);
    channel_destroy(late);
}

// A client is served on the processor that it runs on, wherever that is.
TEST_F(HandOver, ServesAClientWhereItRuns) {
    ipc_allow_looking(0); // a thread that looks may be on another processor
    const cpu_set_t before = mask_of_this_thread();
    const ChannelServer server(
        [](const Message &message) {
            const int processor = sched_getcpu();
            ipc_reply(message.receive_id, 0, &processor, sizeof processor);
        },
        {}, processors() + 1);
    const int connection = connect_to_test();
    for (int processor = 0; processor < CPU_SETSIZE; ++processor) {
        if (!CPU_ISSET(static_cast<size_t>(processor), &before) || !run_on(processor)) {
            continue;
        }
        int there = 0;
        constexpr int times = 400;
        for (int i = 0; i < times; ++i) {
            int served = -1;
            ASSERT_EQ(ipc_send_simple(connection, "", 0, &served, sizeof served), 0);
            there += served == processor;
        }
        EXPECT_GT(there, times / 2) << processor; // otherwise that thread had not yet returned
    }
    sched_setaffinity(0, sizeof before, &before);
    global_name_close(connection);
    ipc_allow_looking(1);
}

// One thread after another waits in a handler; those that are left serve, confined or not.
TEST_F(HandOver, IsServedByWhoeverIsLeft) {
    const int threads = processors() + 2;
    std::mutex lock;
    std::condition_variable changed;
    bool released = false;
    const ChannelServer server(
        [&](const Message &message) {
            if (message.bytes == "wait") {
                std::unique_lock guard(lock);
                changed.wait(guard, [&] { return released; });
            }
            echo(message);
        },
        {}, threads);
    const int connection = connect_to_test();
    std::vector<std::thread> waiting;
    for (int i = 0; i < threads; ++i) {
        for (int j = 0; j < 50; ++j) {
            const int other = j % 10 == 0 ? connect_to_test() : connection;
            ASSERT_TRUE(is_served(other)) << i;
            if (other != connection) {
                global_name_close(other);
            }
        }
        waiting.emplace_back([&] { ipc_send_simple(connection, "wait", 4, nullptr, 0); });
    }
    {
        const std::lock_guard guard(lock);
        released = true;
        changed.notify_all();
    }
    for (std::thread &each : waiting) {
        each.join();
    }
    EXPECT_TRUE(is_served(connection));
    global_name_close(connection);
}

// What a handler starts may run anywhere if it asks for that; a child of fork always may.
TEST_F(HandOver, ConfinesNothingElse) {
    std::mutex lock;
    std::set<int> own, freed, forked;
    const ChannelServer server(
        [&](const Message &message) {
            const cpu_set_t mine = mask_of_this_thread();
            const int status = WEXITSTATUS(exit_status(in_child([] { _exit(processors()); })));
            channel_free_processor();
            std::thread([&] {
                const cpu_set_t mask = mask_of_this_thread();
                const std::lock_guard guard(lock);
                own.insert(CPU_COUNT(&mine));
                freed.insert(CPU_COUNT(&mask));
                forked.insert(status);
            }).join();
            echo(message);
        },
        {}, processors() + 1);
    const int connection = connect_to_test();
    for (int i = 0; i < 60; ++i) {
        ASSERT_TRUE(is_served(connection));
    }
    global_name_close(connection);
    const std::lock_guard guard(lock);
    EXPECT_TRUE(own.count(1)); // that thread was confined
    EXPECT_EQ(freed, std::set<int>{processors()});
    EXPECT_EQ(forked, std::set<int>{processors()});
}

} // namespace
} // namespace vantro::test
