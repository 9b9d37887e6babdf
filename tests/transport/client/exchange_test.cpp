// Requests and answers through both halves, in both modes.
#include <atomic>
#include <climits>
#include <csignal>
#include <numeric>

#include "tests/transport/support.h"

namespace vantro::test {
namespace {

class Exchange : public BothModes {
  protected:
    Exchange() : BothModes(1) {}

    static int echo(MsgClient *client, size_t size, uint16_t code = ECHO) {
        std::string text(size, '\0');
        std::iota(text.begin(), text.end(), '\1');
        std::string answer(size, '\0');
        uint32_t length = 0;
        const int result =
            msgclient_putget(client, text.data(), static_cast<uint32_t>(size), answer.data(),
                             static_cast<uint32_t>(size), &length, code);
        EXPECT_EQ(length, size);
        EXPECT_TRUE(result != 0 || answer == text);
        return result;
    }

    // The result of a request that blocks until signals end it, which come once `ready` holds.
    template <typename Condition>
    static int interrupted(const Client &client, Condition ready) {
        std::atomic<bool> done = false;
        int result = 0;
        std::thread waiting([&] {
            result = client.ask(BLOCK);
            done = true;
        });
        script.wait(ready);
        while (!done) { // the first may come before the thread blocks
            pthread_kill(waiting.native_handle(), SIGUSR1);
            std::this_thread::yield();
        }
        waiting.join();
        return result;
    }
};

IN_BOTH_MODES(Exchange);

TEST_P(Exchange, LengthsAndGrowth) {
    const Client client("s");
    ASSERT_TRUE(client.client);
    EXPECT_EQ(client.client->opened_by_path, GetParam() == MSGSERVER_FLAG_PATH);
    const struct {
        size_t size;
        int result;
        int32_t capacity; // of the server's only thread, afterwards
    } rows[] = {{0, 0, 1024},    {1024, 0, 1024}, {4097, EMSGSIZE, 1024},
                {1025, 0, 2048}, {3000, 0, 3072}, {4096, 0, 4096},
                {2, 0, 4096}};
    for (const auto &row : rows) {
        EXPECT_EQ(echo(client, row.size), row.result) << row.size;
        int32_t capacity = 0;
        EXPECT_EQ(msgclient_putget(client, nullptr, 0, &capacity, 4, nullptr, CAPACITY), 0);
        EXPECT_EQ(capacity, row.capacity) << row.size;
    }
}

TEST_P(Exchange, PayloadBufferOfTheService) {
    const Client client("s");
    EXPECT_EQ(echo(client, 8, MOVE), 0);
    EXPECT_EQ(echo(client, 2000), 0);
    EXPECT_EQ(echo(client, 2001), EMSGSIZE); // never grown: the buffer is not the library's
    EXPECT_FALSE(Client("none").client);     // in path mode the framework answers this open
    EXPECT_EQ(Client("s").error, 0);
}

TEST_P(Exchange, Vectors) {
    const Client client("s");
    std::string bytes(2000, '\0');
    std::iota(bytes.begin(), bytes.end(), '\1');
    for (const int count : {31, 32, 33, 1021, 1022, IOV_MAX + 1}) {
        std::string answer(bytes.size(), '\0');
        std::vector<iovec> send, reply;
        for (int i = 0; i < count; i++) {
            send.push_back({&bytes[static_cast<size_t>(i)], 1});
            reply.push_back({&answer[static_cast<size_t>(i)], 1});
        }
        uint32_t length = 1;
        const int result =
            msgclient_putgetv(client, send.data(), count, reply.data(), count, &length, ECHO);
        // An answer of too many parts reaches the client as an error.
        const int expected = count > 1021 ? EINVAL : 0;
        EXPECT_EQ(result, expected) << count;
        EXPECT_TRUE(result == 0 || length == 0) << "refused before anything was sent";
        EXPECT_EQ(msgclient_putv(client, 1, send.data(), count, ECHO), expected ? EINVAL : EAGAIN);
        EXPECT_EQ(echo(client, static_cast<size_t>(count), SPLIT), expected) << count;
        EXPECT_TRUE(result != 0 || answer.substr(0, length) == bytes.substr(0, length));
    }

    const iovec huge[] = {{bytes.data(), 0x80000000u}, {bytes.data(), 0x80000000u}};
    uint32_t length = 1;
    EXPECT_EQ(msgclient_putgetv(client, huge, 2, nullptr, 0, &length, ECHO), EMSGSIZE);
    EXPECT_EQ(msgclient_getv(client, 0, huge, 2, &length, ECHO), EMSGSIZE);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(msgclient_putv(client, 1, huge, -1, ECHO), EINVAL);
    EXPECT_EQ(msgclient_put(nullptr, 1, nullptr, 0, ECHO), EINVAL);
    EXPECT_EQ(msgclient_close(nullptr), 0);
    EXPECT_EQ(echo(client, 10), 0);
}

TEST_P(Exchange, Names) {
    const std::string n30(30, 'n'), n31(31, 'n'), n32(32, 'n'), i34(34, 'i'), i35(35, 'i');
    ASSERT_EQ(server.add(n30.c_str(), nullptr, i34.c_str()), 1);
    ASSERT_EQ(server.add(n31.c_str()), 2);
    EXPECT_EQ(server.add(n30.c_str(), nullptr, i35.c_str()), -1);
    const struct {
        const char *name, *instance;
        int error;
    } rows[] = {{n31.c_str(), nullptr, 0},
                {n32.c_str(), nullptr, ENAMETOOLONG},
                {n30.c_str(), i34.c_str(), 0},
                {n30.c_str(), i35.c_str(), ENAMETOOLONG},
                {"", nullptr, ENOENT},
                {"..", nullptr, ENOENT},
                {"s", "..", ENOENT},
                {nullptr, nullptr, EINVAL},
                {"s", "default", 0}};
    for (const auto &row : rows) {
        errno = 0;
        MsgClient *client = msgclient_open(row.name, row.instance, 0);
        EXPECT_EQ(client ? 0 : errno, row.error) << (row.name ? row.name : "null");
        msgclient_close(client);
    }
}

TEST_P(Exchange, SignalEndsTheWaitForALane) {
    const WithoutRestart handler;
    server.start(IPC_LANES_MAX - 1);
    const Client client("s");
    std::vector<std::thread> threads;
    threads.reserve(IPC_LANES_MAX);
    for (int i = 0; i < IPC_LANES_MAX; i++) {
        threads.emplace_back([&] { EXPECT_EQ(client.ask(BLOCK), MSG_STATUS_QUEUED); });
    }
    script.wait([] { return script.blocked == IPC_LANES_MAX; });
    EXPECT_EQ(interrupted(client, [] { return true; }), EINTR);
    script.change([] { script.unblock = true; });
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(echo(client, 20), 0);
}

} // namespace
} // namespace vantro::test
