#include "transport/support.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vantro/platform/names.h>

namespace vantro::test {

Script script;

namespace {

int32_t handle_request(MsgOsb *open, MsgContext *context, MsgService *) {
    const TransportHeader header = *context->header;
    const int32_t receive_id = context->receive_id;
    auto *payload = static_cast<char *>(context->payload);
    const auto length = static_cast<int32_t>(header.send_length);
    switch (header.code) {
    case SPLIT: {
        std::vector<iovec> parts;
        for (int32_t i = 0; i < length; i++)
            parts.push_back({payload + i, 1});
        return callout_replyv(open, context, 0, parts.data(), length);
    }
    case FILL: {
        Fill fill = {};
        std::memcpy(&fill, payload, std::min<size_t>(sizeof fill, header.send_length));
        const std::string answer(fill.length, 'f');
        const int32_t result = callout_reply(open, context, fill.status, answer.data(),
                                             static_cast<int32_t>(fill.length));
        return result == ENOMEM ? ipc_error(receive_id, ENOMEM) : 0;
    }
    case CAPACITY:
        return callout_reply(open, context, 0, &context->payload_size, sizeof(int32_t));
    case MOVE: {
        static char own[2000];
        const int32_t result = callout_reply(open, context, 0, payload, length);
        context->payload = own;
        context->payload_size = sizeof own;
        return result;
    }
    case LATER:
        script.change([&] { script.held.push_back({open, receive_id, header.tag}); });
        return 0;
    case BLOCK:
        script.change([] { script.blocked++; });
        script.wait([] { return script.unblock; });
        [[fallthrough]];
    default:
        return callout_reply(open, context, 0, payload, length);
    }
}

int32_t handle_open(MsgOsb *, MsgContext *context, MsgService *) {
    if (context->header->code == BLOCK) {
        script.change([] { script.blocked++; });
        script.wait([] { return script.unblock; });
    }
    return script.open_result;
}

int32_t handle_close(MsgOsb *, MsgContext *context, MsgService *) {
    script.change([&] { ++(context ? script.closes : script.vanished); });
    return 0;
}

/** A runtime directory of the program's own. */
struct RuntimeDirectory : testing::Environment {
    std::string path;

    void SetUp() override {
        char name[] = "/tmp/transport-test-XXXXXX";
        path = mkdtemp(name);
        setenv("XDG_RUNTIME_DIR", name, 1);
    }
    void TearDown() override { std::filesystem::remove_all(path); }
};

} // namespace

Server::Server(int flags, int32_t max_msg_size, int32_t queue_max)
    : server_(msgserver_create(max_msg_size, queue_max, flags)) {
    static auto &all = *new std::vector<MsgServer *>;
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
    for (int i = 0; i < threads; i++)
        threads_.emplace_back(msgserver_thread_loop, server_);
}

void Server::stop() {
    script.change([] { script.unblock = true; });
    if (!server_ || server_->channel == -1)
        return;
    const int pulse = connect_attach(0, 0, server_->channel, 0, 0);
    __atomic_store_n(&server_->stop, 1, __ATOMIC_RELEASE);
    for (size_t i = 0; i < threads_.size(); i++)
        pulse_send(pulse, 10, 0, 0);
    for (std::thread &thread : threads_)
        thread.join();
    threads_.clear();
    connect_detach(pulse);
    channel_destroy(server_->channel);
    server_->channel = -1;
}

MsgService *Server::service(int index) const {
    return static_cast<MsgService *>(_array_get(server_->services, index));
}

int Server::records(int index) const {
    return locked([&] {
        const SlotArray &opens = *service(index)->opens;
        const auto free = std::count(opens.slots, opens.slots + opens.slot_count, nullptr);
        return opens.slot_count - static_cast<int>(free);
    });
}

Raw::Raw(const char *name)
    : connection(global_name_open((std::string("csm/") + name + "/default").c_str(), 0)) {}

Raw::~Raw() {
    global_name_close(connection);
}

std::string Raw::send(const std::string &message) const {
    constexpr char untouched = '\xee';
    std::string reply(256, untouched);
    const int status =
        ipc_send_simple(connection, message.data(), message.size(), reply.data(), reply.size());
    if (status == -1)
        return "error " + std::to_string(errno);
    reply.resize(reply.find_last_not_of(untouched) + 1);
    return std::to_string(status) + (reply.empty() ? "" : " " + to_hex(reply));
}

std::string from_hex(const char *hex) {
    std::string bytes;
    for (const char *at = hex; *at;) {
        if (*at == ' ') {
            at++;
            continue;
        }
        bytes += static_cast<char>(std::stoi(std::string(at, 2), nullptr, 16));
        at += 2;
    }
    return bytes;
}

std::string to_hex(const std::string &bytes) {
    std::string hex;
    for (const char byte : bytes) {
        hex += "0123456789abcdef"[(byte >> 4) & 15];
        hex += "0123456789abcdef"[byte & 15];
    }
    return hex;
}

std::string message(int kind, int service, int open, uint32_t tag, uint32_t send_length,
                    uint32_t reply_length, const std::string &payload) {
    TransportHeader header = {};
    header.kind = static_cast<uint8_t>(kind);
    header.version = 2;
    header.service_index = static_cast<int16_t>(service);
    header.open_index = static_cast<int16_t>(open);
    header.tag = tag;
    header.send_length = send_length;
    header.reply_length = reply_length;
    return std::string(reinterpret_cast<const char *>(&header), sizeof header) + payload;
}

Peer::Peer(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"/proc/self/exe", "--peer"});
    std::vector<char *> words;
    for (std::string &argument : arguments)
        words.push_back(argument.data());
    words.push_back(nullptr);
    int ends[2] = {-1, -1};
    if (pipe(ends) != 0)
        std::abort();
    pid_ = fork();
    if (pid_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(ends[1], STDOUT_FILENO);
        ::close(ends[0]);
        ::close(ends[1]);
        execv(words[0], words.data());
        _exit(127);
    }
    ::close(ends[1]);
    output_ = ends[0];
}

Peer::~Peer() {
    kill();
    ::close(output_);
}

std::string Peer::line() {
    std::string text;
    char letter;
    while (read(output_, &letter, 1) == 1 && letter != '\n')
        text += letter;
    return text;
}

void Peer::kill() {
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    pid_ = -1;
}

} // namespace vantro::test

int main(int argc, char **argv) {
    if (argc > 1 && std::string(argv[1]) == "--peer")
        return vantro::test::peer_main({argv + 2, argv + argc});
    testing::InitGoogleTest(&argc, argv);
    testing::AddGlobalTestEnvironment(new vantro::test::RuntimeDirectory);
    return RUN_ALL_TESTS();
}
