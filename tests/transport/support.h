// Shared by the transport's tests: a server whose service answers as the test says, a client that
// sends raw bytes, and this program again as processes to kill.
#ifndef VANTRO_TESTS_TRANSPORT_SUPPORT_H
#define VANTRO_TESTS_TRANSPORT_SUPPORT_H

#include <algorithm>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>

#include <vantro/messaging.h>
#include <vantro/platform/io.h>
#include <vantro/platform/names.h>

#include "tests/support/process.h"

namespace vantro::test {

// Message codes that the test service knows; see support.cpp.
enum Code : uint16_t {
    ECHO,     // Answers with the payload.
    SPLIT,    // The same, gathered from one part a byte.
    FILL,     // Payload: a length and a status; answers with them.
    CAPACITY, // Answers with the capacity of the receive buffer.
    MOVE,     // As ECHO; from now on payloads go to a buffer of the service's.
    SLOWLY,   // As ECHO, after up to a tenth of a millisecond of work.
    LATER,    // A put: answered by the test that takes it out of `held`.
    BLOCK     // Waits for `unblock`; then as ECHO. An open with this code waits too.
};

struct Held {
    MsgOsb *open;
    int32_t receive_id;
    uint32_t tag;
};

// The requests to the test service, and how it answers. There is one for the whole program; Server
// resets it.
struct Script {
    std::mutex lock;
    std::condition_variable changed;
    int open_result = 0; // Below 0: the open handler answers with that error by itself.
    bool unblock = false;
    int blocked = 0;
    int closes = 0;   // Close handlers called with a context,
    int vanished = 0; // and without one.
    std::vector<Held> held;

    template <typename Condition>
    void wait(Condition condition) {
        std::unique_lock guard(lock);
        changed.wait(guard, condition);
    }
    template <typename Change>
    void change(Change make) {
        {
            const std::lock_guard guard(lock);
            make();
        }
        changed.notify_all();
    }
};

extern Script script;

// A server of the test service, with its threads.
class Server {
  public:
    explicit Server(int flags, int32_t max_msg_size = 1 << 20, int32_t queue_max = 16);
    ~Server() { stop(); }

    int add(const char *name, const char *options = nullptr, const char *instance = nullptr) const;
    void start(int threads);
    void stop();

    MsgService *service(int index = 0) const {
        return static_cast<MsgService *>(_array_get(server_->services, index));
    }
    // Runs a function with the server locked.
    template <typename Look>
    auto locked(Look look) const {
        pthread_mutex_lock(&server_->lock);
        const auto seen = look();
        pthread_mutex_unlock(&server_->lock);
        return seen;
    }
    // Open records of a service that are not freed.
    long records(int index = 0) const {
        return locked([&] {
            const SlotArray &opens = *service(index)->opens;
            void **end = opens.slots + opens.slot_count;
            return opens.slot_count - std::count(opens.slots, end, nullptr);
        });
    }
    MsgServer *operator->() const { return server_; }
    MsgServer *get() const { return server_; }

  private:
    MsgServer *server_;
    std::vector<std::thread> threads_;
};

// A test in one mode, with the service "s" and three threads.
class BothModes : public testing::TestWithParam<int> {
  protected:
    explicit BothModes(int threads = 3) : server(GetParam(), 4096, 100) {
        EXPECT_EQ(server.add("s"), 0);
        server.start(threads);
    }
    Server server;
};

#define IN_BOTH_MODES(suite)                                                                       \
    INSTANTIATE_TEST_SUITE_P(Modes, suite,                                                         \
                             testing::Values(MSGSERVER_FLAG_NOCHECK, MSGSERVER_FLAG_PATH))

// A handler of SIGUSR1, without SA_RESTART, for as long as this lives.
class WithoutRestart {
  public:
    WithoutRestart() {
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        sigaction(SIGUSR1, &action, &before_);
    }
    ~WithoutRestart() { sigaction(SIGUSR1, &before_, nullptr); }

  private:
    struct sigaction before_ = {};
};

// A client, closed at the end.
struct Client {
    explicit Client(const char *name, uint16_t code = ECHO)
        : client(msgclient_open(name, nullptr, code)), error(client ? 0 : errno) {}
    ~Client() { msgclient_close(client); }
    operator MsgClient *() const { return client; }
    int ask(uint16_t code) const {
        return msgclient_putget(client, "x", 1, nullptr, 0, nullptr, code);
    }

    MsgClient *client;
    int error;
};

// A transport message, its lengths as wanted.
inline std::string message(int kind, int service, int open, uint32_t tag, uint32_t send_length,
                           uint32_t reply_length, const std::string &payload = "") {
    const TransportHeader header = {static_cast<uint8_t>(kind),
                                    2,
                                    0,
                                    static_cast<int16_t>(service),
                                    static_cast<int16_t>(open),
                                    tag,
                                    send_length,
                                    reply_length,
                                    0,
                                    0};
    return std::string(reinterpret_cast<const char *>(&header), sizeof header) + payload;
}

// An open request.
inline std::string open_message(const std::string &name, uint16_t code = ECHO) {
    std::string bytes = message(MSG_KIND_OPEN, 0, 0, 0, 0, 28, name + std::string(1, '\0'));
    std::memcpy(&bytes[2], &code, sizeof code);
    return bytes;
}

inline std::string error(int number) {
    return "error " + std::to_string(number);
}

// A connection, by path or by global name, that speaks bytes.
struct Raw {
    explicit Raw(const std::string &name)
        : connection(platform_open(("/sys/csm/" + name + "/default").c_str(), O_RDWR)),
          by_path(connection != -1) {
        if (!by_path) {
            connection = global_name_open(("csm/" + name + "/default").c_str(), 0);
        }
    }
    ~Raw() { by_path ? platform_close(connection) : global_name_close(connection); }

    // @return the status and the bytes that came back, or "error " and the number.
    std::string send(const std::string &bytes) const {
        std::string reply(256, '\xee');
        const int status =
            ipc_send_simple(connection, bytes.data(), bytes.size(), reply.data(), reply.size());
        if (status == -1) {
            return error(errno);
        }
        reply.resize(reply.find_last_not_of('\xee') + 1);
        return std::to_string(status) + " " + reply;
    }
    int connection;
    bool by_path;
};

// This program again, as another process: see peer_main().
struct Peer : Process {
    explicit Peer(std::vector<std::string> words) : Process(command(std::move(words))) {}
    static std::vector<std::string> command(std::vector<std::string> words) {
        words.insert(words.begin(), {"/proc/self/exe", "--peer"});
        return words;
    }
};

} // namespace vantro::test

#endif
