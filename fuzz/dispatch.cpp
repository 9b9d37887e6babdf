// Arbitrary messages to live servers in both modes. An input is a list of steps: one byte that
// says on which connection, two bytes of length, and that many bytes, sent as they are. After each
// input a client that behaves must still be served, whatever the other one did.
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#include <fcntl.h>

#include <vantro/messaging.h>
#include <vantro/platform/io.h>
#include <vantro/platform/names.h>

#include "fuzz/support.h"

namespace {

using vantro::fuzz::require;

constexpr size_t steps_max = 64;

int32_t answer(MsgOsb *open, MsgContext *context, MsgService *) {
    const TransportHeader header = *context->header;
    const int32_t receive_id = context->receive_id;
    // Touches every byte that the header says is there, and only those.
    const std::string payload(static_cast<const char *>(context->payload), header.send_length);
    std::string reply = payload;
    if (header.code & 1) {
        reply.append(header.code, 'x');
    }
    if ((header.code & 2) && header.kind == MSG_KIND_PUT) {
        const iovec parts[] = {{reply.data(), reply.size()}, {reply.data(), 1}};
        return callout_reply2(open, receive_id, header.tag, 0, parts, reply.empty() ? 1 : 2);
    }
    if (header.code & 4) {
        msgserver_growmsg(open->server, static_cast<int32_t>(header.code));
    }
    const int32_t result =
        callout_reply(open, context, 0, reply.data(), static_cast<int32_t>(reply.size()));
    return result == ENOMEM ? ipc_error(receive_id, ENOMEM) : result;
}

int32_t accept(MsgOsb *, MsgContext *context, MsgService *) {
    return context->header->code & 0x8000 ? EDOM : 0;
}

int32_t closed(MsgOsb *, MsgContext *, MsgService *) {
    return 0;
}

MsgServer *serve(int flags) {
    MsgServer *server = msgserver_create(32768, 4, flags);
    require(server && msgserver_add(server, flags == MSGSERVER_FLAG_PATH ? "path" : "name", nullptr,
                                    nullptr, 1024, answer, accept, closed) == 0);
    for (int i = 0; i < 2; i++) {
        std::thread(msgserver_thread_loop, server).detach();
    }
    return server;
}

// The servers and the client that behaves, for the life of the program.
struct World {
    const vantro::fuzz::RuntimeDirectory runtime;
    MsgServer *servers[2];
    MsgClient *bystanders[2];

    World() {
        servers[0] = serve(MSGSERVER_FLAG_NOCHECK);
        servers[1] = serve(MSGSERVER_FLAG_PATH);
        bystanders[0] = msgclient_open("name", nullptr, 0);
        bystanders[1] = msgclient_open("path", nullptr, 0);
    }
};

void expect_service(MsgClient *client) {
    char reply[4] = {};
    require(client && msgclient_putget(client, "good", 4, reply, 4, nullptr, 0) == 0);
    require(std::memcmp(reply, "good", 4) == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static World world;
    const int by_name = global_name_open("csm/name/default", 0);
    const int by_path = platform_open("/sys/csm/path/default", O_RDWR);
    require(by_name != -1 && by_path != -1);
    for (size_t step = 0; step < steps_max && size >= 3; step++) {
        const size_t length = std::min<size_t>(data[1] | data[2] << 8, size - 3);
        const int connection = data[0] & 1 ? by_path : by_name;
        char reply[256];
        ipc_send_simple(connection, data + 3, length, reply, sizeof reply);
        data += 3 + length;
        size -= 3 + length;
    }
    global_name_close(by_name);
    platform_close(by_path);
    for (MsgClient *bystander : world.bystanders) {
        expect_service(bystander);
    }
    return 0;
}
