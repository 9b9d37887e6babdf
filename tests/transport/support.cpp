#include "tests/transport/support.h"

#include <chrono>
#include <cstring>
#include <random>

#include <sched.h>

namespace vantro::test {

Script script;

namespace {

void block() {
    script.change([] { script.blocked++; });
    script.wait([] { return script.unblock; });
}

int32_t handle_request(MsgOsb *open, MsgContext *context, MsgService *) {
    const TransportHeader header = *context->header;
    const int32_t receive_id = context->receive_id;
    auto *payload = static_cast<char *>(context->payload);
    const auto length = static_cast<int32_t>(header.send_length);
    static char own_buffer[2000];
    switch (header.code) {
    case SPLIT: {
        std::vector<iovec> parts;
        parts.reserve(static_cast<size_t>(length));
        for (int32_t i = 0; i < length; i++) {
            parts.push_back({payload + i, 1});
        }
        return callout_replyv(open, context, 0, parts.data(), length);
    }
    case FILL: {
        int32_t wanted[2];
        std::memcpy(wanted, payload, sizeof wanted);
        const std::string answer(static_cast<size_t>(wanted[0]), 'f');
        const int32_t result = callout_reply(open, context, wanted[1], answer.data(), wanted[0]);
        return result == ENOMEM ? ipc_error(receive_id, ENOMEM) : 0;
    }
    case CAPACITY:
        return callout_reply(open, context, 0, &context->payload_size, sizeof(int32_t));
    case MOVE:
        callout_reply(open, context, 0, payload, length);
        context->payload = own_buffer;
        context->payload_size = sizeof own_buffer;
        return 0;
    case SLOWLY: {
        thread_local std::minstd_rand random(static_cast<unsigned>(receive_id));
        const auto end =
            std::chrono::steady_clock::now() + std::chrono::microseconds(random() % 100);
        while (std::chrono::steady_clock::now() < end) {
            sched_yield();
        }
        return callout_reply(open, context, 0, payload, length);
    }
    case LATER:
        script.change([&] { script.held.push_back({open, receive_id, header.tag}); });
        return 0;
    case BLOCK:
        block();
        [[fallthrough]];
    default:
        return callout_reply(open, context, 0, payload, length);
    }
}

int32_t handle_open(MsgOsb *, MsgContext *context, MsgService *) {
    if (context->header->code == BLOCK) {
        block();
    }
    if (script.open_result < 0) {
        ipc_error(context->receive_id, -script.open_result);
        return 0;
    }
    return script.open_result;
}

int32_t handle_close(MsgOsb *, MsgContext *context, MsgService *) {
    script.change([&] { ++(context ? script.closes : script.vanished); });
    return 0;
}

} // namespace

Server::Server(int flags, int32_t max_msg_size, int32_t queue_max)
    : server_(msgserver_create(max_msg_size, queue_max, flags)) {
    static auto &all = *new std::vector<MsgServer *>; // nobody frees a server
    all.push_back(server_);
    script.change([] {
        script.open_result = script.blocked = script.closes = script.vanished = 0;
        script.unblock = false;
        script.held.clear();
    });
}

int Server::add(const char *name, const char *options, const char *instance) const {
    return msgserver_add(server_, name, instance, options, 1024, handle_request, handle_open,
                         handle_close);
}

void Server::start(int threads) {
    for (int i = 0; i < threads; i++) {
        threads_.emplace_back(msgserver_thread_loop, server_);
    }
}

void Server::stop() {
    if (server_->channel == -1) {
        return;
    }
    script.change([] { script.unblock = true; });
    const int pulse = connect_attach(0, 0, server_->channel, 0, 0);
    __atomic_store_n(&server_->stop, 1, __ATOMIC_RELEASE);
    for (size_t i = 0; i < threads_.size(); i++) {
        pulse_send(pulse, 10, 0, 0);
    }
    for (std::thread &thread : threads_) {
        thread.join();
    }
    threads_.clear();
    connect_detach(pulse);
    channel_destroy(server_->channel);
    server_->channel = -1;
    pthread_key_delete(server_->key); // a process has few of them, and many tests
}

namespace {

void say(const char *what, int number) {
    std::printf("%s %d\n", what, number);
    std::fflush(stdout);
}

// serve NAME FLAGS: until it is killed. ask NAME OPEN-CODE CODE: once.
int peer_main(const std::vector<std::string> &words) {
    const auto number = [&](size_t at) { return static_cast<uint16_t>(std::stoi(words[at])); };
    if (words[0] == "serve") {
        Server server(number(2));
        say("added", server.add(words[1].c_str()));
        say("pid", getpid());
        server.start(20);
        for (int seen = 0;;) {
            script.wait([&] { return script.blocked > seen; });
            say("blocked", ++seen);
        }
    }
    const Client client(words[1].c_str(), number(2));
    say("open", client.error);
    if (client.client) {
        say("asked", client.ask(number(3)));
    }
    return 0;
}

} // namespace
} // namespace vantro::test

int main(int argc, char **argv) {
    if (argc > 1 && std::strcmp(argv[1], "--peer") == 0) {
        return vantro::test::peer_main({argv + 2, argv + argc});
    }
    testing::InitGoogleTest(&argc, argv);
    char directory[] = "/tmp/transport-test-XXXXXX";
    setenv("XDG_RUNTIME_DIR", mkdtemp(directory), 1);
    const int result = RUN_ALL_TESTS();
    std::filesystem::remove_all(directory);
    return result;
}
