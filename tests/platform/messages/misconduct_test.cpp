// Clients that break the rules: each loses its own connection, and no other is affected.
#include <sys/mman.h>
#include <sys/resource.h>

#include "platform/linux/runtime/published_name.h"
#include "tests/platform/support.h"

namespace vantro::test {
namespace {

using platform::ControlRecord;
using platform::Frame;

// A memory file of `size` bytes with the given seals.
UniqueFd memory_file(size_t size, int seals) {
    UniqueFd file(memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    EXPECT_EQ(ftruncate(file.get(), static_cast<off_t>(size)), 0);
    if (seals != 0) {
        EXPECT_EQ(fcntl(file.get(), F_ADD_SEALS, seals), 0);
    }
    return file;
}

constexpr int all_seals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE;

UniqueFd pipe_end(int) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    close(ends[1]);
    return UniqueFd(ends[0]);
}

template <typename... Parts>
std::string packet(const Parts &...parts) {
    std::string all;
    (all.append(reinterpret_cast<const char *>(&parts), sizeof parts), ...);
    return all;
}

constexpr uint32_t in_file = platform::frame_memory_file;

// Everything a lane or a control socket must survive, by name.
const struct Misdeed {
    const char *name;
    std::string packet;
    UniqueFd (*descriptor)(int lane) = nullptr; // what is sent with it
    enum { on_lane, on_lane_until_refused, on_control } where = on_lane;
} misdeeds[] = {
    {"a packet shorter than a frame", "short"},
    {"a length above what came", packet(frame(100))},
    {"a length below what came", packet(frame(1), uint64_t{0})},
    {"a length beyond every limit", packet(frame(0xffffffff, in_file)),
     [](int) { return memory_file(10, all_seals); }},
    {"unknown flags", packet(frame(0, 0x80))},
    {"a descriptor that nothing asked for", packet(frame(0)),
     [](int lane) { return UniqueFd(dup(lane)); }},
    {"a memory file that did not come", packet(frame(10, in_file))},
    {"a memory file shorter than it says", packet(frame(200000, in_file)),
     [](int) { return memory_file(199999, all_seals); }},
    {"a memory file that can shrink", packet(frame(200000, in_file)),
     [](int) { return memory_file(200000, F_SEAL_GROW | F_SEAL_WRITE); }},
    {"a pipe in a memory file's place", packet(frame(10, in_file)), pipe_end},
    // Messages that share an event with the first are noticed at the lane's next event.
    {"a second message before the answer", packet(frame(4)) + "hold", nullptr,
     Misdeed::on_lane_until_refused},
    {"a control record of a wrong size", "x", nullptr, Misdeed::on_control},
    {"a control record of an unknown kind", packet(ControlRecord{77, 0}), nullptr,
     Misdeed::on_control},
};

TEST(Misconduct, CostsTheOneWhoDoesItHisConnection) {
    const RuntimeDirectory runtime;
    std::atomic<int> disconnects{0};
    const ChannelServer server(
        [](const Message &message) {
            if (message.bytes != "hold") {
                echo(message);
            }
        },
        [&](const struct ipc_pulse &) { ++disconnects; }, 3);
    const int good = connect_to_test();
    ASSERT_TRUE(is_served(good));
    const int before = open_descriptors() + later_descriptors();
    int expected = 0;
    for (const Misdeed &misdeed : misdeeds) {
        RawClient client(runtime.path());
        const UniqueFd lane = client.receive_lane();
        ASSERT_GE(lane.get(), 0);
        const std::string &bytes = misdeed.packet;
        const UniqueFd along = misdeed.descriptor ? misdeed.descriptor(lane.get()) : UniqueFd();
        if (misdeed.where == Misdeed::on_lane_until_refused) {
            while (send(lane.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) > 0) {
                std::this_thread::yield();
            }
        } else {
            const bool control = misdeed.where == Misdeed::on_control;
            send_on(control ? client.control.get() : lane.get(), bytes.data(), bytes.size(),
                    along.get());
        }
        EXPECT_TRUE(client.is_cut_off()) << misdeed.name;
        EXPECT_TRUE(is_served(good)) << misdeed.name;
        ++expected;
    }
    while (disconnects < expected) {
        ASSERT_TRUE(is_served(good));
    }
    EXPECT_EQ(disconnects, expected);
    // A thread that was about to read closes its descriptors a moment later.
    for (int i = 0; i < 10000 && open_descriptors() > before; ++i) {
        ASSERT_TRUE(is_served(good));
    }
    EXPECT_LE(open_descriptors(),
              before); // which may have included the far end of a lane, just passed
    global_name_close(good);
}

TEST(Misconduct, RequestsForPulsesAreBounded) {
    const RuntimeDirectory runtime;
    const ChannelServer server(echo);
    const int before = open_descriptors();
    {
        RawClient client(runtime.path());
        const UniqueFd lane = client.receive_lane();
        const auto request_pulses = [&](int number) {
            const ControlRecord record{platform::control_pulse_request, number};
            send_on(client.control.get(), &record, sizeof record);
            return client.receive_lane(); // the answer is of the same form
        };
        std::vector<UniqueFd> ends;
        for (int number = 1; number <= IPC_PULSE_CONNECTIONS_MAX; ++number) {
            ends.push_back(request_pulses(number));
            ASSERT_TRUE(ends.back());
            ASSERT_TRUE(request_pulses(number)) << "in place of the first";
        }
        EXPECT_LE(open_descriptors(), before + 4 + 3 * IPC_PULSE_CONNECTIONS_MAX);
        char byte;
        EXPECT_EQ(recv(ends.back().get(), &byte, 1, 0), 0);
        EXPECT_LT(send(ends.back().get(), "x", 1, MSG_NOSIGNAL), 0);
        ends.clear();                    // they and their successors are closed,
        EXPECT_TRUE(request_pulses(77)); // and so there is room
    }
    const int good = connect_to_test();
    // Until the server has noticed that the other one is gone.
    while (open_descriptors() > before + 4) {
        ASSERT_TRUE(is_served(good));
    }
    global_name_close(good);
}

TEST(Misconduct, LanesAreBounded) {
    const RuntimeDirectory runtime;
    const ChannelServer server(echo);
    RawClient client(runtime.path());
    std::vector<UniqueFd> lanes;
    lanes.push_back(client.receive_lane());
    while (lanes.back()) {
        const ControlRecord request{platform::control_lane_request, 0};
        send_on(client.control.get(), &request, sizeof request);
        lanes.push_back(client.receive_lane());
        ASSERT_LE(lanes.size(), size_t{IPC_LANES_MAX} + 1);
    }
    EXPECT_EQ(lanes.size(), size_t{IPC_LANES_MAX} + 1);
}

TEST(Misconduct, SilentConnectionsAndExhaustedDescriptorsDelayNobody) {
    const RuntimeDirectory runtime;
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t child = in_child([&] {
        const struct rlimit few = {500, 500};
        setrlimit(RLIMIT_NOFILE, &few);
        ChannelServer server(echo, {}, 2);
        [[maybe_unused]] const ssize_t n = write(ready[1], "r", 1);
        pause();
    });
    char byte;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    const struct rlimit many = {4096, 4096};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &many), 0);
    const int good = connect_to_test();
    std::vector<int> silent;
    int turned_away = 0;
    for (int i = 0; i < 1000; ++i) {
        const int connection = connect_to_test();
        if (connection >= 0) {
            silent.push_back(connection);
        } else {
            turned_away += errno == EAGAIN;
        }
    }
    EXPECT_GT(silent.size(), 200u);
    EXPECT_EQ(silent.size() + static_cast<size_t>(turned_away), 1000u);
    EXPECT_TRUE(is_served(good));
    // A large message needs a descriptor at the server: refused, and the connection goes on.
    const std::string large(200000, 'x');
    const int status = ipc_send_simple(good, large.data(), large.size(), nullptr, 0);
    EXPECT_TRUE(status == 1024 || (status == -1 && errno == EMFILE)) << status << " " << errno;
    EXPECT_TRUE(is_served(good));
    for (const int connection : silent) {
        global_name_close(connection);
    }
    int later = -1;
    while ((later = connect_to_test()) < 0) { // until the server has closed the others
        ASSERT_EQ(errno, EAGAIN);
    }
    EXPECT_TRUE(is_served(later));
    global_name_close(later);
    global_name_close(good);
    kill(child, SIGKILL);
    exit_status(child);
    close(ready[0]);
    close(ready[1]);
}

// A server that gives a client one lane, and on it the test's answer to every message.
class RawServer {
  public:
    RawServer(const std::string &runtime, Frame answer, int descriptor = -1,
              int version = platform::wire_version)
        : answer_(answer), descriptor_(descriptor), version_(version) {
        struct sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        const std::string directory = runtime + "/vantro/name/csm/test";
        std::filesystem::create_directories(directory);
        strncpy(address.sun_path, (directory + "/default").c_str(), sizeof address.sun_path - 1);
        unlink(address.sun_path);
        listening_.reset(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
        EXPECT_EQ(
            bind(listening_.get(), reinterpret_cast<struct sockaddr *>(&address), sizeof address),
            0);
        EXPECT_EQ(listen(listening_.get(), 1), 0);
        thread_ = std::thread([this] { serve(); });
    }
    ~RawServer() { thread_.join(); }

  private:
    void serve() {
        const UniqueFd control(accept4(listening_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        int ends[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
        const UniqueFd lane(ends[0]);
        const ControlRecord grant{platform::control_lane_granted,
                                  version_ << platform::wire_version_shift};
        send_on(control.get(), &grant, sizeof grant, ends[1]);
        close(ends[1]);
        std::thread refusals([&] {
            ControlRecord record{platform::control_refused, ENOMEM};
            while (recv(control.get(), &record, sizeof record, 0) > 0) {
                record = {platform::control_refused, ENOMEM};
                send_on(control.get(), &record, sizeof record);
            }
        });
        char buffer[256];
        while (recv(lane.get(), buffer, sizeof buffer, 0) > 0) {
            send_on(lane.get(), &answer_, sizeof answer_, descriptor_);
        }
        refusals.join();
    }

    const Frame answer_;
    const int descriptor_;
    const int version_;
    UniqueFd listening_;
    std::thread thread_;
};

TEST(Misconduct, OfAServerCostsItItsClientAndNothingElse) {
    const RuntimeDirectory runtime;
    const UniqueFd unsealed = memory_file(100, 0);
    const UniqueFd sealed = memory_file(100, all_seals);
    const UniqueFd lasting = memory_file(100, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_FUTURE_WRITE);
    const auto reply = [](uint32_t length, int status, uint32_t flags) {
        return Frame{.length = length, .status = status, .flags = flags, .processor = 0};
    };
    const struct {
        Frame answer;
        int descriptor;
        int result;
        int error;
    } cases[] = {
        {reply(0, 7, 0), -1, 7, 0},
        {reply(0, 7, 0), sealed.get(), 7, 0}, // and is closed
        {reply(0, -7, 0), -1, -1, ECONNRESET},
        {reply(0, EDOM, platform::frame_error), -1, -1, EDOM},
        {reply(0, 0, platform::frame_error), -1, -1, ECONNRESET}, // an error without a number
        {reply(100, 7, platform::frame_memory_file), sealed.get(), 7, 0},
        {reply(100, 7, platform::frame_memory_file), unsealed.get(), -1, ECONNRESET},
        {reply(101, 7, platform::frame_memory_file), sealed.get(), -1, ECONNRESET},
        {reply(100, 7, platform::frame_memory_file), -1, -1, ECONNRESET},
        {reply(100, 7, platform::frame_answer_file), lasting.get(), 7, 0},
        {reply(100, 7, platform::frame_answer_file), sealed.get(), -1, ECONNRESET},
        {reply(101, 7, platform::frame_answer_file), lasting.get(), -1, ECONNRESET},
        {reply(100, 7, platform::frame_answer_file), -1, -1, ECONNRESET}, // it never came
    };
    const int before = open_descriptors();
    for (const auto &c : cases) {
        const RawServer server(runtime.path(), c.answer, c.descriptor);
        const int connection = connect_to_test();
        char room[200];
        errno = 0;
        EXPECT_EQ(ipc_send_simple(connection, "x", 1, room, sizeof room), c.result);
        EXPECT_EQ(errno, c.error) << &c - cases;
        global_name_close(connection);
    }
    for (const int version : {0, platform::wire_version + 1}) {
        const RawServer server(runtime.path(), frame(0), -1, version);
        EXPECT_EQ(connect_to_test(), -1);
        EXPECT_EQ(errno, EPROTONOSUPPORT);
    }
    EXPECT_EQ(open_descriptors(), before);
}

// If the server gives no further lane, threads wait for the lanes that there are.
TEST(Misconduct, ThreadsShareWhatLanesTheServerGives) {
    const RuntimeDirectory runtime;
    const RawServer server(runtime.path(), frame(0));
    const int connection = connect_to_test();
    std::atomic<int> failed{0};
    std::vector<std::thread> threads;
    threads.reserve(8);
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 200; ++i) {
                failed += ipc_send_simple(connection, "x", 1, nullptr, 0) != 0;
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failed, 0);
    global_name_close(connection);
}

// A server that answers one request for pulses with an end, and then misbehaves on it.
void serve_pulses_badly(int listening, void (*misbehave)(int end)) {
    const UniqueFd control(accept4(listening, nullptr, nullptr, SOCK_CLOEXEC));
    const auto grant = [&](platform::ControlKind kind, int value) {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
        const ControlRecord record{kind, value};
        send_on(control.get(), &record, sizeof record, ends[1]);
        close(ends[1]);
        return UniqueFd(ends[0]);
    };
    const UniqueFd lane = grant(platform::control_lane_granted,
                                platform::wire_version << platform::wire_version_shift);
    ControlRecord request;
    ASSERT_EQ(recv(control.get(), &request, sizeof request, 0), ssize_t{sizeof request});
    const UniqueFd end = grant(platform::control_pulse_granted, request.value);
    misbehave(end.get());
    char byte;
    EXPECT_EQ(recv(control.get(), &byte, 1, 0), 0); // until the client leaves
}

TEST(Misconduct, OneServerCannotSilenceAnother) {
    const RuntimeDirectory runtime;
    std::atomic<int> last_id{0};
    const ChannelServer server([&](const Message &message) {
        last_id = message.receive_id;
        echo(message);
    });
    const int honest = connect_to_test();
    ASSERT_TRUE(is_served(honest));
    const int channel = channel_create(0);
    const int number = connect_attach(0, 0, channel, 0, 0);
    ASSERT_EQ(ipc_announce_pulse(honest, number), 0);
    platform::PublishedName name;
    const UniqueFd listening = name.publish("name/csm/rogue/default");
    ASSERT_TRUE(listening);
    ASSERT_EQ(fcntl(listening.get(), F_SETFL, 0), 0);
    void (*const misdeeds_of_servers[])(int) = {
        [](int end) { shutdown(end, SHUT_RDWR); },
        [](int end) { send_on(end, "short", 5); },
        [](int end) {
            struct ipc_pulse systems = {};
            systems.code = PULSE_CODE_DISCONNECT;
            send_on(end, &systems, sizeof systems);
        },
        [](int end) { send_on(end, "", 0); },
    };
    for (const auto misdeed : misdeeds_of_servers) {
        std::thread rogue(serve_pulses_badly, listening.get(), misdeed);
        const int connection = global_name_open("csm/rogue/default", 0);
        EXPECT_EQ(ipc_announce_pulse(connection, number), 0);
        // More than the number of violations that can wait to be noticed.
        for (int value = 1; value <= 4; ++value) {
            const struct ipc_event event = {IPC_EVENT_PULSE, number, value, 3, 10};
            const bool servers = value % 2 != 0;
            EXPECT_EQ(
                servers ? ipc_deliver_event(last_id, &event) : pulse_send(number, 0, 3, value), 0);
            struct ipc_pulse pulse;
            ASSERT_EQ(ipc_receive_pulse(channel, &pulse, sizeof pulse, nullptr), 0);
            EXPECT_EQ(pulse.value, value);
            EXPECT_EQ(pulse.code, 3);
        }
        global_name_close(connection);
        rogue.join();
    }
    connect_detach(number);
    channel_destroy(channel);
    global_name_close(honest);
}

} // namespace
} // namespace vantro::test
