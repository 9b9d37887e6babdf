// A hostile client sends files of its own file system, which does not answer when they are closed.
#include <array>
#include <thread>

#include <fcntl.h>
#include <linux/fuse.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>

#include <fmt/format.h>

#include "platform/linux/base/unique_fd.h"
#include "platform/linux/messages/wire.h"
#include "tests/service/vantrod.h"

namespace vantro::service {

namespace {

using platform::UniqueFd;

constexpr uint32_t file_mode = S_IFREG | 0600;

template <typename Record>
void answer(int device, uint64_t request, const Record &record) {
    fuse_out_header header = {sizeof header + sizeof record, 0, request};
    const iovec parts[] = {{&header, sizeof header},
                           {const_cast<Record *>(&record), sizeof record}};
    EXPECT_GT(writev(device, parts, 2), 0);
}

void answer(int device, uint64_t request, int error) {
    const fuse_out_header header = {sizeof header, -error, request};
    EXPECT_GT(write(device, &header, sizeof header), 0);
}

// Runs a file system that consists of one file. It prints "held" for each close that it does not
// answer: those of all processes except one.
int run_file_system(int device, pid_t but_for) {
    alignas(8) static std::array<char, (1 << 17) + 4096> request;
    while (read(device, request.data(), request.size()) > 0) {
        fuse_in_header in;
        std::memcpy(&in, request.data(), sizeof in);
        fuse_attr_out attributes = {};
        attributes.attr.ino = in.nodeid;
        attributes.attr.mode = file_mode;
        attributes.attr.nlink = 1;
        fuse_init_out features = {};
        features.major = FUSE_KERNEL_VERSION;
        features.minor = 31;
        features.max_write = 4096;
        switch (in.opcode) {
        case FUSE_INIT:
            answer(device, in.unique, features);
            break;
        case FUSE_GETATTR:
            answer(device, in.unique, attributes);
            break;
        case FUSE_OPEN:
            answer(device, in.unique, fuse_open_out{});
            break;
        case FUSE_FLUSH:
            if (in.pid == static_cast<uint32_t>(but_for)) {
                answer(device, in.unique, 0);
                break;
            }
            std::puts("held");
            std::fflush(stdout);
            break;
        case FUSE_FORGET:
        case FUSE_BATCH_FORGET:
        case FUSE_INTERRUPT:
            break;
        default:
            answer(device, in.unique, in.opcode == FUSE_RELEASE ? 0 : ENOSYS);
        }
    }
    return 0;
}

class SlowClose : public Vantrod {
  protected:
    enum Outcome { tried, failed, no_file_system = 77 };

    // Sends a message with a descriptor that the service does not expect, and waits until the
    // service has received it.
    void send(int descriptor) const {
        UniqueFd control(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        // Every user may connect to it.
        const std::string name = path_ + "/vantro/name/vantrod/vantro.sys/default";
        ASSERT_LT(name.size(), sizeof address.sun_path);
        name.copy(address.sun_path, name.size());
        ASSERT_EQ(connect(control.get(), reinterpret_cast<sockaddr *>(&address), sizeof address),
                  0);
        platform::ControlRecord record;
        iovec part = {&record, sizeof record};
        platform::Arrival lane;
        ASSERT_GT(platform::receive_packet(control.get(), &part, 1, 0, lane), 0);
        platform::Frame frame;
        part = {&frame, sizeof frame};
        ASSERT_GT(platform::send_packet(lane.descriptor.get(), &part, 1, descriptor, 0), 0);
        recv(lane.descriptor.get(), &frame, sizeof frame, 0);
    }
    long descriptors() const {
        const std::filesystem::directory_iterator all(fmt::format("/proc/{}/fd", service->id()));
        return std::distance(begin(all), end(all));
    }
    static void expect_served() {
        const Client client;
        ASSERT_NE(client.client, nullptr);
        EXPECT_EQ(client.result(open_main), 0);
        EXPECT_EQ(client.ask(state).substr(0, 4), bytes(0));
    }
    int try_file_system() {
        const std::string file = path_ + "/slow", music = path_ + "/music";
        std::filesystem::create_directory(music);
        test::write_file(file, "");
        UniqueFd device(open("/dev/fuse", O_RDWR | O_CLOEXEC));
        const std::string options =
            fmt::format("fd={},rootmode={:o},user_id=0,group_id=0", device.get(), file_mode);
        if (geteuid() != 0 || !device || unshare(CLONE_NEWNS) != 0 ||
            mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("slow", file.c_str(), "fuse", 0, options.c_str()) != 0) {
            return no_file_system;
        }
        start({"--music", music});
        EXPECT_EQ(told(), "vantrod: ready (0 tracks, players: main)");
        // It ends before the test waits for the service, also if the test fails: this ends all
        // blocked closes.
        test::Process file_system(
            [&, pid = getpid()] { return run_file_system(device.get(), pid); });
        device.reset();
        UniqueFd slow(open(file.c_str(), O_RDWR | O_CLOEXEC));
        EXPECT_TRUE(slow) << strerror(errno);
        send(slow.get());
        EXPECT_EQ(file_system.line(), "held");
        expect_served();

        // Further descriptors are not closed, but must not use up the service's descriptors.
        const long before = descriptors();
        constexpr int strangers = 200;
        for (int i = 0; i < strangers; ++i) {
            send(slow.get());
            expect_served();
        }
        for (int i = 0; i < 2000 && descriptors() > before + strangers / 2; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        EXPECT_LE(descriptors(), before + strangers / 2) << "before: " << before;

        // When it is told to end, its work and its names end, and another service can replace it.
        slow.reset(); // otherwise a new program would close it, and block
        service->kill(SIGTERM);
        std::optional<test::Process> next;
        std::string line;
        for (int i = 0; i < 1000 && line.rfind("vantrod: ready", 0) != 0; ++i) {
            next.emplace(std::vector<std::string>{VANTROD, "--music", music, "--audio", "clock"});
            line = next->line();
        }
        EXPECT_EQ(line, "vantrod: ready (0 tracks, players: main)");
        file_system.kill(SIGKILL);
        EXPECT_EQ(service->wait(), 0);
        expect_served();
        return HasFailure() ? failed : tried;
    }
};

TEST_F(SlowClose, HoldsUpNeitherTheServiceNorItsEnd) {
    test::Process child([this] { return try_file_system(); });
    const std::string output = child.rest();
    const int outcome = child.wait();
    if (outcome == no_file_system) {
        GTEST_SKIP() << "this system cannot run a file system: slow closes were NOT tested";
    }
    EXPECT_EQ(outcome, tried) << output;
}

} // namespace

} // namespace vantro::service
