// Pulses: a program's own, a client's notifications, and the one that says a client is gone.
#include <condition_variable>
#include <mutex>
#include <set>

#include "tests/platform/support.h"

namespace vantro::test {
namespace {

TEST(Pulse, EnoughFitAndTheRestIsRefused) {
    const int channel = channel_create(0);
    const int connection = connect_attach(0, 0, channel, 0, 0);
    int sent = 0;
    while (pulse_send(connection, 10, 5, sent) == 0) {
        ++sent;
    }
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_GE(sent, IPC_PULSE_CAPACITY);
    for (int i = 0; i < sent; ++i) {
        struct ipc_pulse pulse;
        memset(&pulse, 0xff, sizeof pulse);
        ASSERT_EQ(ipc_receive_pulse(channel, &pulse, sizeof pulse, nullptr), 0);
        ASSERT_EQ(pulse.value, i);
        ASSERT_EQ(pulse.code, 5);
        ASSERT_EQ(pulse.type, 0);
        ASSERT_EQ(pulse.subtype, 0);
    }
    EXPECT_EQ(pulse_send(connection, 10, -33, 0), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(ipc_send_simple(connection, "x", 1, nullptr, 0), -1);
    EXPECT_EQ(errno, ENOTSUP);
    EXPECT_EQ(connect_detach(connection), 0);
    EXPECT_EQ(connect_detach(connection), -1);
    EXPECT_EQ(pulse_send(connection, 10, 5, 0), -1);
    EXPECT_EQ(errno, EBADF);
    channel_destroy(channel);
}

TEST(Pulse, EventsReachTheClientThatAnnouncedThemAndNoOther) {
    const RuntimeDirectory runtime;
    std::atomic<int> last_id{0};
    const ChannelServer server(
        [&](const Message &message) {
            last_id = message.receive_id;
            echo(message);
        },
        {}, 2);
    const int connection = connect_to_test();
    const int other = connect_to_test();
    ASSERT_TRUE(is_served(connection));
    const int channel = channel_create(0);
    std::vector<int> attached;
    for (int i = 0; i <= IPC_PULSE_CONNECTIONS_MAX; ++i) {
        attached.push_back(connect_attach(0, 0, channel, 0, 0));
    }
    const auto deliver = [&](int number) {
        struct ipc_event event = {IPC_EVENT_PULSE, number, 42, 3, 10};
        return ipc_deliver_event(last_id, &event) == 0 ? 0 : errno;
    };
    const auto announce = [](int to, int number) {
        return ipc_announce_pulse(to, number) == 0 ? 0 : errno;
    };
    const int last = attached.back();
    EXPECT_EQ(announce(other, last), 0);
    EXPECT_EQ(deliver(last), ESRCH) << "not announced by this client";
    for (int i = 0; i < IPC_PULSE_CONNECTIONS_MAX; ++i) {
        EXPECT_EQ(announce(connection, attached[static_cast<size_t>(i)]), 0);
    }
    EXPECT_EQ(announce(connection, last), EAGAIN) << "each of them may still be named";
    EXPECT_EQ(announce(connection, attached.front()), 0) << "again";
    EXPECT_EQ(connect_detach(attached.front()), 0);
    EXPECT_EQ(deliver(attached.front()), ESRCH) << "detached";
    EXPECT_EQ(announce(connection, attached.front()), EBADF);
    EXPECT_EQ(announce(-1, last), EBADF);
    EXPECT_EQ(announce(connection, last), 0) << "there is room";
    EXPECT_EQ(deliver(last), 0); // after the reply
    struct ipc_pulse pulse;
    ASSERT_EQ(ipc_receive_pulse(channel, &pulse, sizeof pulse, nullptr), 0);
    EXPECT_EQ(pulse.value, 42);
    EXPECT_EQ(pulse.code, 3);
    struct ipc_event event = {IPC_EVENT_SIGNAL_THREAD, last, 42, 3, 10};
    EXPECT_EQ(ipc_deliver_event(last_id, &event), -1);
    EXPECT_EQ(errno, EINVAL);
    global_name_close(connection);
    while (deliver(last) == 0) {
        std::this_thread::yield(); // until the server has noticed that it is gone
    }
    EXPECT_EQ(errno, ESRCH);
    global_name_close(other);
    for (size_t i = 1; i < attached.size(); ++i) {
        connect_detach(attached[i]);
    }
    channel_destroy(channel);
}

// Pulses that a client does not take wait at the server, in order, until it does.
TEST(Pulse, EventsThatFindNoRoomFollowLater) {
    const RuntimeDirectory runtime;
    std::atomic<int> last_id{0};
    const ChannelServer server([&](const Message &message) {
        last_id = message.receive_id;
        echo(message);
    });
    const int connection = connect_to_test();
    ASSERT_TRUE(is_served(connection));
    const int channel = channel_create(0);
    const int number = connect_attach(0, 0, channel, 0, 0);
    ASSERT_EQ(ipc_announce_pulse(connection, number), 0);
    struct ipc_event event = {IPC_EVENT_PULSE, number, 0, 3, 10};
    while (ipc_check_event(last_id, &event) == 0) {
        ASSERT_EQ(ipc_deliver_event(last_id, &event), 0);
        if (event.value++ == 1000) { // a new end, which gets the waiting pulses
            ASSERT_EQ(ipc_announce_pulse(connection, number), 0);
        }
    }
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_GE(event.value, IPC_PULSE_BACKLOG);
    ASSERT_EQ(ipc_deliver_event(last_id, &event), 0) << "promised before";
    std::set<int> values;
    for (int i = 0; i <= event.value; ++i) {
        struct ipc_pulse pulse;
        ASSERT_EQ(ipc_receive_pulse(channel, &pulse, sizeof pulse, nullptr), 0);
        values.insert(pulse.value);
    }
    EXPECT_EQ(static_cast<int>(values.size()), event.value + 1) << "none lost, none twice";
    connect_detach(number);
    global_name_close(connection);
    channel_destroy(channel);
}

// Requests that are held unanswered, and the pulses that come in between.
class HeldRequests {
  public:
    void handle(const Message &message) {
        if (message.bytes == "probe") {
            echo(message);
            return;
        }
        std::unique_lock guard(lock_);
        ++entered_;
        changed_.notify_all();
        changed_.wait(guard, [&] { return go_on_; });
        pulses_during_dispatch += pulses_;
        if (message.bytes == "answer") {
            guard.unlock();
            EXPECT_EQ(ipc_reply(message.receive_id, 0, nullptr, 0), -1);
            EXPECT_EQ(errno, ESRCH);
        }
    }
    void pulse(const struct ipc_pulse &pulse) {
        const std::lock_guard guard(lock_);
        ++pulses_;
        gone.push_back(pulse.conn_id);
        changed_.notify_all();
    }

    void wait_for_entered(int count) {
        std::unique_lock guard(lock_);
        changed_.wait(guard, [&] { return entered_ == count; });
    }
    // Waits for that many pulses, forgets them, answers the requests, and waits for one more pulse.
    void let_go_after(int count) {
        std::unique_lock guard(lock_);
        changed_.wait(guard, [&] { return pulses_ == count; });
        pulses_ = 0;
        gone.clear();
        go_on_ = true;
        changed_.notify_all();
        changed_.wait(guard, [&] { return pulses_ == 1; });
    }

    int pulses_during_dispatch = 0;
    std::vector<int> gone; // clients

  private:
    std::mutex lock_;
    std::condition_variable changed_;
    int entered_ = 0;
    bool go_on_ = false;
    int pulses_ = 0;
};

// No request of that client may be under way when the sweep follows the pulse.
TEST(Pulse, TheDisconnectWaitsForWhatIsBeingDispatched) {
    const RuntimeDirectory runtime;
    int start[2];
    ASSERT_EQ(pipe(start), 0);
    const pid_t child = in_child([&] { // killed while two of its threads wait
        char byte;
        [[maybe_unused]] const ssize_t n = read(start[0], &byte, 1);
        const int own = connect_to_test();
        std::thread other([own] { ipc_send_simple(own, "answer", 6, nullptr, 0); });
        ipc_send_simple(own, "forget", 6, nullptr, 0);
        other.join();
    });
    HeldRequests held;
    {
        const ChannelServer server([&](const Message &message) { held.handle(message); },
                                   [&](const struct ipc_pulse &pulse) { held.pulse(pulse); }, 4);
        const int probe = connect_to_test();
        [[maybe_unused]] const ssize_t n = write(start[1], "s", 1);
        held.wait_for_entered(2);
        kill(child, SIGKILL);
        exit_status(child);
        // When further clients have come and were answered, the death has been noticed.
        constexpr int others = 50;
        for (int i = 0; i < others; ++i) {
            const int another = connect_to_test();
            EXPECT_EQ(ipc_send_simple(another, "probe", 5, nullptr, 0), 5);
            EXPECT_EQ(ipc_send_simple(probe, "probe", 5, nullptr, 0), 5);
            global_name_close(another);
        }
        held.let_go_after(others);
        EXPECT_EQ(ipc_send_simple(probe, "probe", 5, nullptr, 0), 5);
        global_name_close(probe);
    }
    EXPECT_EQ(held.pulses_during_dispatch, 0);
    EXPECT_EQ(std::set<int>(held.gone.begin(), held.gone.end()).size(), held.gone.size())
        << "told twice";
    close(start[0]);
    close(start[1]);
}

TEST(Pulse, AConnectionIdIsNotReusedBeforeItIsDetached) {
    const RuntimeDirectory runtime;
    const int channel = channel_create(CHANNEL_DISCONNECT);
    struct path_dispatch *dispatch = path_dispatch_create(channel, 0);
    ASSERT_NE(global_name_attach(dispatch, "csm/test/default", 0), nullptr);
    const pid_t child = in_child([] {
        const int connection = connect_to_test();
        ipc_send_simple(connection, "x", 1, nullptr, 0);
        global_name_close(connection);
    });
    char buffer[64];
    const struct iovec part = {buffer, sizeof buffer};
    struct ipc_info info;
    const int receive_id = ipc_receive(channel, &part, 1, &info);
    ASSERT_GT(receive_id, 0);
    struct ipc_credentials credentials;
    EXPECT_EQ(connect_client_info(info.conn_id, &credentials, IPC_CREDENTIAL_GROUPS), 0);
    EXPECT_EQ(credentials.pid, child);
    EXPECT_EQ(info.pid, child);
    EXPECT_EQ(credentials.uid, geteuid());
    EXPECT_EQ(ipc_reply(receive_id, 0, nullptr, 0), 0);
    ASSERT_EQ(ipc_receive(channel, &part, 1, nullptr), 0);
    struct ipc_pulse pulse;
    memcpy(&pulse, buffer, sizeof pulse);
    EXPECT_EQ(pulse.code, PULSE_CODE_DISCONNECT);
    EXPECT_EQ(pulse.conn_id, info.conn_id);
    EXPECT_EQ(connect_client_info(info.conn_id, &credentials, 0), 0); // still known
    EXPECT_EQ(connect_detach(pulse.conn_id), 0);
    EXPECT_EQ(connect_client_info(info.conn_id, &credentials, 0), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(connect_detach(pulse.conn_id), -1);
    exit_status(child);
    channel_destroy(channel);
    path_dispatch_destroy(dispatch);
}

} // namespace
} // namespace vantro::test
