// Descriptors that clients send: closing them does not hold up a thread that serves.
#include <netinet/in.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "tests/platform/support.h"

namespace vantro::test {
namespace {

using platform::ControlRecord;
using platform::Frame;

// A TCP socket whose last close waits until its bytes are sent: for ever, unless the other side is
// closed.
struct LingeringSocket {
    LingeringSocket() {
        const UniqueFd listening(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        struct sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        auto *const any = reinterpret_cast<struct sockaddr *>(&address);
        EXPECT_EQ(bind(listening.get(), any, length), 0);
        EXPECT_EQ(listen(listening.get(), 1), 0);
        EXPECT_EQ(getsockname(listening.get(), any, &length), 0);
        near.reset(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        EXPECT_EQ(connect(near.get(), any, length), 0);
        far.reset(accept4(listening.get(), nullptr, nullptr, SOCK_CLOEXEC));
        const std::string bytes(1 << 16, 'x');
        while (send(near.get(), bytes.data(), bytes.size(), MSG_DONTWAIT) > 0) {
        }
        const struct linger long_enough = {1, 20};
        setsockopt(near.get(), SOL_SOCKET, SO_LINGER, &long_enough, sizeof long_enough);
    }
    UniqueFd near;
    UniqueFd far;
};

// A message that the server answers once its client has left.
void send_hold(int lane) {
    struct {
        Frame header = frame(4);
        char bytes[4] = {'h', 'o', 'l', 'd'};
    } packet;
    send_on(lane, &packet, sizeof packet);
}

// Ways in which a client can leave a descriptor with a server that then has to close it.
const struct {
    const char *name;
    bool needs_a_lent_thread;
    void (*send)(RawClient &client, int lane, int descriptor);
} unwelcome[] = {
    {"beside a message", false,
     [](RawClient &, int lane, int descriptor) {
         const Frame plain = frame(0);
         send_on(lane, &plain, sizeof plain, descriptor);
     }},
    {"in a memory file's place", false,
     [](RawClient &, int lane, int descriptor) {
         const Frame lie = frame(10, platform::frame_memory_file);
         send_on(lane, &lie, sizeof lie, descriptor);
     }},
    {"never received, behind a packet without bytes", false,
     [](RawClient &, int lane, int descriptor) {
         send_hold(lane);
         send_on(lane, "", 0);
         send_on(lane, "", 0, descriptor);
     }},
    {"on the control socket", false,
     [](RawClient &client, int, int descriptor) {
         ControlRecord record{platform::control_lane_request, 0};
         const struct iovec part = {&record, sizeof record};
         if (platform::send_packet(client.control.get(), &part, 1, descriptor, 0) < 0) {
             EXPECT_EQ(errno, EPERM); // a kernel that can refuse it; so the last close is ours
             const struct linger none = {};
             setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &none, sizeof none);
         }
     }},
    {"in the queue of another socket", true,
     [](RawClient &, int lane, int descriptor) {
         int ends[2];
         ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
         send_hold(lane); // so that the last close is the server's
         send_on(ends[0], "x", 1, descriptor);
         const Frame plain = frame(0);
         send_on(lane, &plain, sizeof plain, ends[1]);
         close(ends[0]);
         close(ends[1]);
     }},
};

bool sleeps(pid_t thread) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    const std::string line{std::istreambuf_iterator<char>(file), {}};
    return line.find(") S ") != std::string::npos;
}

TEST(ForeignDescriptor, ThatIsSlowToCloseHoldsUpNobody) {
    for (const bool lent : {false, true}) {
        const RuntimeDirectory runtime;
        std::vector<UniqueFd> far_ends;
        std::thread lent_thread;
        std::atomic<bool> left{false};
        {
            const ChannelServer server([&left](const Message &message) {
                if (message.bytes == "hold") {
                    left.wait(false);
                }
                echo(message);
            });
            if (lent) {
                std::atomic<pid_t> id{0};
                lent_thread = std::thread([&id, channel = server.channel] {
                    id = gettid();
                    ipc_lend_closing_thread(channel);
                });
                while (id == 0 || !sleeps(id)) { // by then it is waiting
                    std::this_thread::yield();
                }
            }
            const int good = connect_to_test();
            for (const auto &way : unwelcome) {
                if (way.needs_a_lent_thread && !lent) {
                    continue;
                }
                LingeringSocket lingering;
                RawClient client(runtime.path());
                const UniqueFd lane = client.receive_lane();
                const auto start = std::chrono::steady_clock::now();
                left = false;
                way.send(client, lane.get(), lingering.near.get());
                lingering.near.reset();
                client.control.reset(); // and the server closes what is left in its sockets
                left = true;
                left.notify_all();
                for (int i = 0; i < 20; ++i) {
                    ASSERT_TRUE(is_served(good));
                }
                EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10))
                    << way.name;
                far_ends.push_back(std::move(lingering.far));
            }
            global_name_close(good);
        }
        far_ends.clear(); // which ends every wait
        if (lent) {
            lent_thread.join();
        }
    }
}

} // namespace
} // namespace vantro::test
