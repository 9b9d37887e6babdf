#include "bench/own_service.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <thread>
#include <vector>

#include <vantro/platform/message.h>

#include <fmt/format.h>

#include "bench/run.h"

namespace vantro::bench {

namespace {

constexpr const char *service_name = "bench";
constexpr size_t request_bytes = 16;
constexpr size_t small_bytes = 4;
constexpr uint16_t long_code = 1;
constexpr int64_t long_ns = 5000000;

// Answers with as many bytes as the client offers; a long request after it has computed.
int32_t answer(MsgOsb *open, MsgContext *context, MsgService *) {
    static std::array<char, most_reply_bytes> bytes;
    const uint32_t room = context->header->reply_length;
    if (room > bytes.size()) {
        return ipc_error(context->receive_id, EINVAL);
    }
    if (context->header->code == long_code) {
        for (const int64_t begin = now_ns(); now_ns() - begin < long_ns;) {
        }
    }
    return callout_reply(open, context, 0, bytes.data(), static_cast<int32_t>(room));
}

std::vector<std::string> server_command(int threads, const std::string &instance, bool looks) {
    std::vector<std::string> command{program_beside(""), "--serve",
                                     fmt::format("putget:{}:{}", threads, instance)};
    if (!looks) {
        command.emplace_back("--block");
    }
    return command;
}

} // namespace

Server::Server(int threads, const std::string &instance, bool looks)
    : child_(server_command(threads, instance, looks)) {
    child_.wait_for_line("ready");
}

Client connect(const char *instance) {
    Client client(msgclient_open(service_name, instance, 0));
    if (!client) {
        fail_errno("cannot open the bench's own service");
    }
    return client;
}

void exchange(MsgClient *client, void *reply, uint32_t reply_bytes) {
    const char request[request_bytes] = {};
    uint32_t length = 0;
    const int result =
        msgclient_putget(client, request, sizeof request, reply, reply_bytes, &length, 0);
    if (result != 0 || length != reply_bytes) {
        fail(fmt::format("an exchange failed: {} ({} bytes of {})",
                         result ? std::strerror(result) : "short answer", length, reply_bytes));
    }
}

void exchange_small(MsgClient *client) {
    char reply[small_bytes];
    exchange(client, reply, sizeof reply);
}

void exchange_long(MsgClient *client) {
    const char request[request_bytes] = {};
    char reply[small_bytes];
    if (msgclient_putget(client, request, sizeof request, reply, sizeof reply, nullptr,
                         long_code) != 0) {
        fail("a long exchange failed");
    }
}

int serve_putget(int threads, const char *instance) {
    MsgServer *server = msgserver_create(1024, 16, MSGSERVER_FLAG_PATH);
    // Hands over like vantrod.
    const bool handed_over = server && (threads == 1 || channel_hand_over(server->channel) == 0);
    if (!handed_over || msgserver_add(server, service_name, instance, nullptr, 1024, answer,
                                      nullptr, nullptr) < 0) {
        std::perror("vantro-bench: the bench's own service");
        return 1;
    }
    std::puts("ready");
    std::fflush(stdout);
    std::vector<std::jthread> others;
    for (int i = 1; i < threads; ++i) {
        others.emplace_back([server] { msgserver_thread_loop(server); });
    }
    return msgserver_thread_loop(server);
}

int trace_exchanges(size_t count) {
    const Client client = connect();
    for (size_t i = 0; i < count; ++i) {
        exchange_small(client.get());
    }
    return 0;
}

} // namespace vantro::bench
