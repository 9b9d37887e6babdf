/**
 * What the transport's tests share: a server with a service that is told how to answer, a client
 * that speaks bytes, and processes to kill.
 */
#ifndef VANTRO_TESTS_TRANSPORT_SUPPORT_H
#define VANTRO_TESTS_TRANSPORT_SUPPORT_H

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <vantro/messaging.h>

namespace vantro::test {

/** Message codes that the test service knows. */
enum Code : uint16_t {
    ECHO,     /**< Answers with the payload. */
    SPLIT,    /**< The same, gathered from one part a byte. */
    FILL,     /**< Payload: a length and a status; answers with them. */
    CAPACITY, /**< Answers with the capacity of the receive buffer. */
    MOVE,     /**< As ECHO, and payloads go to a buffer of the service's from now on. */
    LATER,    /**< A put: answered by whoever takes it out of `held`. */
    BLOCK     /**< Waits for `unblock`; then as ECHO. An open with this code waits too. */
};

struct Fill {
    uint32_t length;
    int32_t status;
};

struct Held {
    MsgOsb *open;
    int32_t receive_id;
    uint32_t tag;
};

/** What the test service was told, and how it is to answer. One for the program, reset by Server. */
struct Script {
    std::mutex lock;
    std::condition_variable changed;
    int open_result = 0;
    bool unblock = false;
    int blocked = 0;
    int closes = 0;   /**< Close handlers called with a context, */
    int vanished = 0; /**< and without one. */
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

/** A server of the test service, with its threads. The library never frees a server: a list of
 *  them keeps them reachable. */
class Server {
  public:
    explicit Server(int flags, int32_t max_msg_size = 1 << 20, int32_t queue_max = 16);
    ~Server() { stop(); }

    int add(const char *name, const char *options = nullptr, const char *instance = nullptr) const;
    void start(int threads);
    void stop();

    MsgService *service(int index = 0) const;
    /** Open records of a service that are not freed. */
    int records(int index = 0) const;
    /** Looks at what the server lock guards. */
    template <typename Look>
    auto locked(Look look) const {
        const std::lock_guard guard(*this);
        return look();
    }
    void lock() const { pthread_mutex_lock(&server_->lock); }
    void unlock() const { pthread_mutex_unlock(&server_->lock); }
    MsgServer *operator->() const { return server_; }
    MsgServer *get() const { return server_; }

  private:
    MsgServer *server_;
    std::vector<std::thread> threads_;
};

/** A client, closed at the end. */
struct Client {
    explicit Client(const char *name, uint16_t code = ECHO)
        : client(msgclient_open(name, nullptr, code)), error(client ? 0 : errno) {}
    ~Client() { msgclient_close(client); }
    operator MsgClient *() const { return client; }

    MsgClient *client;
    int error;
};

/** Result of a raw exchange: "STATUS HEX" or "error N", HEX being the bytes that came back. */
struct Raw {
    explicit Raw(const char *name);
    ~Raw();
    std::string send(const std::string &message) const;
    int connection;
};

std::string from_hex(const char *hex);
std::string to_hex(const std::string &bytes);

/** A transport message, its lengths as wanted. */
std::string message(int kind, int service, int open, uint32_t tag, uint32_t send_length,
                    uint32_t reply_length, const std::string &payload = "");

/** This program again, as another process: see peer.cpp. Dies with the test. */
class Peer {
  public:
    explicit Peer(std::vector<std::string> arguments);
    ~Peer();
    std::string line();
    void kill();

  private:
    int pid_;
    int output_;
};

int peer_main(const std::vector<std::string> &arguments);

/** Flags of the two modes, as test parameters. */
inline constexpr int MODES[] = {MSGSERVER_FLAG_NOCHECK, MSGSERVER_FLAG_PATH};
inline std::string mode_name(const testing::TestParamInfo<int> &info) {
    return info.param == MSGSERVER_FLAG_PATH ? "path" : "names";
}

} // namespace vantro::test

#endif
