// Clients and servers that look for each other's messages instead of sleeping. Each test makes both
// look, by exchanges in quick succession between two processors.
#include <pthread.h>
#include <sys/mman.h>

#include <future>
#include <random>

#include "platform/linux/messages/lane_words.h"
#include "tests/platform/support.h"
#include "tests/support/processors.h"

namespace vantro::test {
namespace {

// Both threads make progress also if the machine has other work.
class Looking : public testing::Test {
  protected:
    void SetUp() override {
        all_ = mask_of_this_thread();
        int found = 0;
        for (int i = 0; i < CPU_SETSIZE && found < 2; ++i) {
            if (CPU_ISSET(static_cast<size_t>(i), &all_)) {
                processor_[found++] = i;
            }
        }
        if (found < 2) {
            GTEST_SKIP() << "there is one processor";
        }
        handing_over = false;
        run_on(processor_[0]);
    }
    void TearDown() override {
        handing_over = handing_over_always();
        sched_setaffinity(0, sizeof all_, &all_);
    }

    // Confines the calling thread, one of the server, to a processor without clients.
    void apart() const {
        thread_local const bool done = run_on(processor_[1]);
        static_cast<void>(done);
    }

    static void exchange_quickly(int connection, int times = 2000) {
        for (int i = 0; i < times; ++i) {
            int reply = -1;
            ASSERT_EQ(ipc_send_simple(connection, &i, sizeof i, &reply, sizeof reply),
                      static_cast<int>(sizeof i));
            ASSERT_EQ(reply, i);
        }
    }

    const RuntimeDirectory runtime_;
    cpu_set_t all_;
    int processor_[2] = {0, 1};
};

// Some handlers take long, so that both sides go to sleep and look again, many times. One thread
// serves all clients, and those that keep it looking must not keep it from the others.
TEST_F(Looking, AnswersEveryMessageOfEveryClient) {
    std::atomic<int> received = 0;
    const ChannelServer server([&](const Message &message) {
        apart();
        if (++received % 97 == 0) {
            usleep(300);
        }
        echo(message);
    });
    std::vector<std::thread> clients;
    clients.reserve(3);
    for (int i = 0; i < 3; ++i) {
        clients.emplace_back([] {
            const int connection = connect_to_test();
            exchange_quickly(connection, 5000);
            global_name_close(connection);
        });
    }
    const int connection = connect_to_test();
    for (int i = 0; i < 50; ++i) {
        usleep(1000);
        EXPECT_TRUE(is_served(connection));
    }
    for (std::thread &client : clients) {
        client.join();
    }
    global_name_close(connection);
    EXPECT_EQ(received, 3 * 5000 + 50);
}

// What the thread that is looking for the client's messages does.
enum class Does { stays, leaves, is_cancelled, answers_later };

class LookingThread : public Looking, public testing::WithParamInterface<Does> {
  protected:
    // A thread of the server. After the message "now" it does what the parameter says.
    void serve(int channel) {
        apart();
        for (;;) {
            Message message;
            message.bytes.resize(64);
            const struct iovec part = {message.bytes.data(), message.bytes.size()};
            message.receive_id = ipc_receive(channel, &part, 1, &message.info);
            if (message.receive_id < 0) {
                return;
            }
            message.bytes.resize(static_cast<size_t>(message.info.msg_length));
            if (message.receive_id == 0 || message.bytes != "now") {
                echo(message);
                continue;
            }
            if (GetParam() == Does::answers_later) {
                late_ = message.receive_id;
                continue;
            }
            echo(message);
            if (GetParam() == Does::leaves) {
                return;
            }
            if (GetParam() == Does::is_cancelled) {
                pthread_cancel(pthread_self());
                continue;
            }
            ended_.wait();
        }
    }

    std::promise<void> end_;
    const std::shared_future<void> ended_ = end_.get_future().share();
    std::atomic<int> late_ = 0;
};

TEST_P(LookingThread, IsNotMissed) {
#ifdef __SANITIZE_THREAD__
    if (GetParam() == Does::is_cancelled) {
        GTEST_SKIP() << "the sanitizer misses the locks that a thread takes while it is cancelled";
    }
#endif
    const int channel = channel_create(CHANNEL_DISCONNECT);
    struct path_dispatch *const dispatch = path_dispatch_create(channel, 0);
    ASSERT_TRUE(global_name_attach(dispatch, "csm/test/default", 0));
    std::thread first([&] { serve(channel); });
    const int connection = connect_to_test();
    exchange_quickly(connection);
    std::thread second([&] { serve(channel); });
    exchange_quickly(connection);
    if (GetParam() == Does::answers_later) {
        std::thread asking(
            [&] { EXPECT_EQ(ipc_send_simple(connection, "now", 3, nullptr, 0), 7); });
        while (late_ == 0) {
            usleep(1000);
        }
        EXPECT_TRUE(is_served(connection));
        ipc_reply(late_, 7, nullptr, 0);
        asking.join();
    } else {
        EXPECT_EQ(ipc_send_simple(connection, "now", 3, nullptr, 0), 3);
    }
    exchange_quickly(connection);
    end_.set_value();
    global_name_close(connection);
    channel_destroy(channel);
    first.join();
    second.join();
    path_dispatch_destroy(dispatch);
}

std::string name_of_case(const testing::TestParamInfo<Does> &each) {
    constexpr const char *names[] = {"Stays", "Leaves", "IsCancelled", "AnswersLater"};
    return names[static_cast<size_t>(each.param)];
}

INSTANTIATE_TEST_SUITE_P(, LookingThread,
                         testing::Values(Does::stays, Does::leaves, Does::is_cancelled,
                                         Does::answers_later),
                         name_of_case);

// If a client changes its words without reason, and has its lane watched all the time, it still
// gets its answers, and so do others. A client that names a lane it does not have is cut off.
TEST_F(Looking, IsSafeFromAClientThatPlaysWithItsWords) {
    const ChannelServer server([&](const Message &message) {
        apart();
        echo(message);
    });
    const int other = connect_to_test();
    exchange_quickly(other);
    RawClient client(runtime_.path());
    const UniqueFd lane = client.receive_lane();
    const auto control = [&](platform::ControlKind kind, int value) {
        const platform::ControlRecord record{kind, value};
        send_on(client.control.get(), &record, sizeof record);
    };
    control(platform::control_words_request, 0);
    const UniqueFd file = client.receive_lane();
    const auto words = platform::ConnectionWords::adopt(file.get());
    ASSERT_TRUE(words);
    std::mt19937 random(1);
    for (int i = 0; i < 5000; ++i) {
        struct {
            platform::Frame frame;
            int number;
        } message = {frame(sizeof message.number), i};
        message.frame.processor = static_cast<uint32_t>(processor_[0]) + 1;
        words->lane(0).sent = random();
        send_on(lane.get(), &message, sizeof message);
        while (random() % 4 != 0) {
            words->lane(random()).sent = random();
            words->lane(0).unwatched = random() % 2;
            if (random() % 8 == 0) {
                control(platform::control_watch_lane, 0);
            }
        }
        // Sent as the library does before it sleeps; here the word cannot be trusted.
        control(platform::control_watch_lane, 0);
        ASSERT_EQ(recv(lane.get(), &message, sizeof message, 0),
                  static_cast<ssize_t>(sizeof message));
        ASSERT_EQ(message.number, i);
    }
    EXPECT_TRUE(is_served(other));
    control(platform::control_watch_lane, 63);
    EXPECT_TRUE(client.is_cut_off());
    RawClient again(runtime_.path());
    again.receive_lane();
    const platform::ControlRecord request{platform::control_words_request, 0};
    send_on(again.control.get(), &request, sizeof request);
    again.receive_lane();
    send_on(again.control.get(), &request, sizeof request);
    EXPECT_TRUE(again.is_cut_off());
    EXPECT_TRUE(is_served(other));
    global_name_close(other);
}

// Clients that die at any moment of an exchange leave nothing behind.
TEST_F(Looking, ForgetsAClientThatDies) {
    const ChannelServer server([&](const Message &message) {
        apart();
        echo(message);
    });
    const int connection = connect_to_test();
    exchange_quickly(connection);
    const int before = open_descriptors();
    for (int i = 0; i < 20; ++i) {
        const pid_t child = in_child([&] { exchange_quickly(connect_to_test(), 1'000'000); });
        exchange_quickly(connection, 200 + 37 * i);
        kill(child, SIGKILL);
        exit_status(child);
    }
    for (int i = 0; i < 1000 && open_descriptors() > before; ++i) {
        usleep(10'000);
    }
    EXPECT_LE(open_descriptors(), before);
    EXPECT_TRUE(is_served(connection));
    global_name_close(connection);
}

} // namespace
} // namespace vantro::test
