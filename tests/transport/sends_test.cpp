// Observes and delays this program's messages, with its own sendmsg() instead of the C library's.
#include <atomic>
#include <chrono>
#include <functional>
#include <future>

#include <dlfcn.h>
#include <poll.h>
#include <sys/socket.h>

#include "platform/linux/messages/wire.h"
#include "tests/transport/support.h"

namespace vantro::test {
namespace {

std::atomic<bool> sent_noise = false; // beside a descriptor

// Called with the socket before the next announcement of a held answer leaves.
std::function<void(int)> on_announcement;
std::atomic<bool> is_armed = false;

// Bytes of a control message after its data.
bool has_noise(const msghdr &message) {
    const cmsghdr *header = CMSG_FIRSTHDR(&message);
    const auto *bytes = static_cast<const char *>(message.msg_control);
    return header && std::any_of(bytes + header->cmsg_len, bytes + message.msg_controllen,
                                 [](char each) { return each != 0; });
}

bool is_announcement(const msghdr &message) {
    platform::Frame frame;
    if (message.msg_iov->iov_len != sizeof frame) {
        return false;
    }
    std::memcpy(&frame, message.msg_iov->iov_base, sizeof frame);
    return frame.status == MSG_STATUS_QUEUED && frame.flags == 0;
}

// Leaves bytes on the stack at the place of the variables of the functions that are called next.
[[gnu::noinline]] void leave_noise() {
    volatile char noise[32 * 1024];
    for (volatile char &each : noise) {
        each = '\xA5';
    }
}

} // namespace
} // namespace vantro::test

#pragma GCC visibility push(default)
extern "C" ssize_t sendmsg(int fd, const msghdr *message, int flags) {
    using namespace vantro::test;
    static const auto real = reinterpret_cast<decltype(&sendmsg)>(dlsym(RTLD_NEXT, "sendmsg"));
    if (has_noise(*message)) {
        sent_noise = true;
    }
    if (is_armed && is_announcement(*message) && is_armed.exchange(false)) {
        on_announcement(fd);
    }
    return real(fd, message, flags);
}
#pragma GCC visibility pop

namespace vantro::test {
namespace {

TEST(Sends, NothingThatWasLeftInMemory) {
    Server server(MSGSERVER_FLAG_PATH);
    ASSERT_EQ(server.add("s"), 0);
    server.start(1);
    const Client client("s");
    const std::string text(200'000, 't'); // travels in a memory file
    sent_noise = false;
    leave_noise();
    EXPECT_EQ(msgclient_putget(client, text.data(), static_cast<uint32_t>(text.size()), nullptr, 0,
                               nullptr, ECHO),
              MSG_STATUS_QUEUED);
    EXPECT_FALSE(sent_noise);
}

const MsgOsb *open_record(const Server &server) {
    const SlotArray &opens = *server.service()->opens;
    return static_cast<const MsgOsb *>(*std::find_if(opens.slots, opens.slots + opens.slot_count,
                                                     [](void *each) { return each; }));
}

// A client gives a request up while its answer, which is held, is announced. Meanwhile another
// thread of the client may fetch that answer and leave one of its own, in the same memory.
TEST(Sends, AnAnswerThatCannotBeAnnouncedTakesNoOtherWithIt) {
    Server server(MSGSERVER_FLAG_PATH);
    ASSERT_EQ(server.add("s"), 0);
    server.start(2); // while one announces, the other does all the rest
    const Client client("s");
    const WithoutRestart handler;
    constexpr int length = 600;
    const auto fill = [&](int32_t status) {
        const int32_t wanted[] = {length, status};
        return msgclient_putget(client, wanted, sizeof wanted, nullptr, 0, nullptr, FILL);
    };
    std::string answer(length, '\0');
    const auto get = [&] { return msgclient_get(client, 0, answer.data(), length, nullptr, 0); };
    std::promise<void> announcing;
    std::promise<void> other_done;
    std::atomic<pthread_t> asking = 0;
    on_announcement = [&](int socket) {
        pollfd lane = {socket, POLLRDHUP, 0};
        while (poll(&lane, 1, 10) == 0) {
            pthread_kill(asking, SIGUSR1);
        }
        announcing.set_value();
        // It cannot if the server excludes it, so there is an end to this.
        other_done.get_future().wait_for(std::chrono::milliseconds(500));
    };
    is_armed = true;
    std::thread given_up([&] {
        asking = pthread_self();
        EXPECT_EQ(fill(1), EINTR);
    });
    announcing.get_future().wait();
    get();
    EXPECT_EQ(fill(2), MSG_STATUS_QUEUED);
    other_done.set_value();
    given_up.join();
    while (server.locked([&] { return open_record(server)->inuse; }) != 0) {
        std::this_thread::yield(); // the request that was given up is not done with
    }
    EXPECT_EQ(get(), 2);
}

} // namespace
} // namespace vantro::test
