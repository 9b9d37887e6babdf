// The bytes of every message in both directions, and a server's answers to bytes that are no
// message.
#include <cstring>
#include <functional>
#include <future>

#include "tests/transport/support.h"

namespace vantro::test {
namespace {

std::string from_hex(const char *hex) {
    std::string bytes;
    unsigned byte = 0;
    for (int length = 0; std::sscanf(hex, " %2x%n", &byte, &length) == 1; hex += length) {
        bytes += static_cast<char>(byte);
    }
    return bytes;
}

// The client half against a bare channel: what it sends, and its result for each answer.
TEST(Wire, WhatTheClientSends) {
    const int channel = channel_create(0);
    path_dispatch *dispatch = path_dispatch_create(channel, 0);
    ASSERT_TRUE(global_name_attach(dispatch, "csm/golden/two", 0));
    MsgClient *client = nullptr;
    char data[] = "abcde", answer[8] = {};
    uint32_t length = 0;
    const iovec parts[] = {{data, 3}, {data + 3, 2}};
    const ipc_event event = {IPC_EVENT_PULSE, 0x01020304, 0, 5, 10};

    const struct {
        std::function<int()> call;
        const char *sent;
        int status;
        const char *reply;
    } rows[] = {
        {[&] { return (client = msgclient_open("golden", "two", 0xabcd)) ? 0 : errno; },
         "0002 cdab 0000 0000 00000000 07000000 1c000000 0000000000000000 676f6c64656e00", 0,
         "0002 cdab 0700 0900 00000000 07000000 1c000000 0000000000000000"},
        {[&] { return msgclient_notify(client, 4, &event); },
         "0202 0000 0700 0900 00000000 10000000 04000000 0000000000000000"
         "04000000 04030201 00000000 0500 0a00",
         0, ""},
        {[&] { return msgclient_putget(client, data, 5, answer, 8, &length, 0x1234); },
         "0302 3412 0700 0900 00000000 05000000 08000000 0000000000000000 6162636465", 0,
         "0302 3412 0700 0900 00000000 05000000 02000000 0000000000000000 7879"},
        {[&] { return msgclient_putv(client, 0x11223344, parts, 2, 1); },
         "0402 0100 0700 0900 44332211 05000000 ffffff7f 0000000000000000 6162636465", 17, ""},
        {[&] { return msgclient_get(client, 0x11223344, answer, 8, &length, 2); },
         "0502 0200 0700 0900 44332211 00000000 08000000 0000000000000000", MSG_STATUS_QUEUED,
         "0000 0000 0000 0000 00000000 00000000 09000000 0000000000000000"},
        {[&] { return msgclient_close(client); },
         "0102 0000 0700 0900 00000000 1c000000 00000000 0000000000000000", 0, ""},
    };
    for (const auto &row : rows) {
        auto result = std::async(std::launch::async, row.call);
        std::string received(256, '\0');
        const iovec whole = {received.data(), received.size()};
        ipc_info info = {};
        const int id = ipc_receive(channel, &whole, 1, &info);
        received.resize(static_cast<size_t>(info.msg_length));
        EXPECT_EQ(received, from_hex(row.sent)) << row.sent;
        const std::string reply = from_hex(row.reply);
        EXPECT_EQ(ipc_reply(id, row.status, reply.data(), reply.size()), 0);
        EXPECT_EQ(result.get(), row.status) << row.sent;
    }
    EXPECT_STREQ(answer, "xy");
    EXPECT_EQ(length, 9u);
    channel_destroy(channel);
    path_dispatch_destroy(dispatch);
}

// The server half against raw bytes, in one conversation: each row depends on the rows before it.
TEST(Wire, WhatTheServerAnswers) {
    Server server(MSGSERVER_FLAG_NOCHECK, 2048, 16);
    ASSERT_EQ(server.add("alpha"), 0);
    ASSERT_EQ(server.add("beta"), 1);
    ASSERT_EQ(server.add("beta", nullptr, "second"), 2); // never found: the lowest index wins
    server.start(1); // so that the answer to a put is there when the next message is looked at
    const Raw mine("beta"), other("beta");
    const std::string header = message(3, 1, 0, 0, 4, 4), event(16, 'e');
    const std::string zeros_2 = std::string(16, '\0') + '\2' + std::string(11, '\0');

    const struct {
        const char *name;
        std::string sent, answer;
    } rows[] = {
        {"open",
         from_hex("0002 0500 0000 0000 00000000 05000000 1c000000 0000000000000000") +
             std::string("beta\0", 5),
         "0 " + from_hex("0002 0500 0100 0000 00000000 05000000 1c000000 0000000000000000")},
        {"open without a NUL", message(0, 0, 0, 0, 5, 28, "beta"), error(ENOENT)},
        {"open of nothing", message(0, 0, 0, 0, 0, 28), error(ENOENT)},
        {"open, longer", message(0, 0, 0, 0, 6, 28, std::string("beta2\0", 6)), error(ENOENT)},
        {"put before notify, tag 0", message(4, 1, 0, 0, 0, 0), error(EAGAIN)},
        {"notify of 15 bytes", message(2, 1, 0, 0, 16, 1, event.substr(1)), error(EINVAL)},
        {"notify, limit 100", message(2, 1, 0, 0, 16, 100, event), "0 "},
        {"notify, limit -1", message(2, 1, 0, 0, 16, 0xffffffff, event), "0 "},
        {"put, tag 0", message(4, 1, 0, 0, 0, 0), error(EINVAL)},
        {"put", message(4, 1, 0, 7, 2, 0, "hi"), "0 "},
        {"put, one is held", message(4, 1, 0, 7, 2, 0, "hi"), error(EAGAIN)},
        {"get too short", message(5, 1, 0, 7, 0, 1), "240 " + zeros_2},
        {"get", message(5, 1, 0, 7, 0, 2), "0 " + zeros_2 + "hi"},
        {"get again", message(5, 1, 0, 7, 0, 2), error(ENOMSG)},
        {"putget", header + "abcd", "0 " + header + "abcd"},
        {"putget that lies", message(3, 1, 0, 0, 5, 5, "wxyz"), error(EIO)},
        {"putget that lies, negative", message(3, 1, 0, 0, 0xffffffff, 5, "wxyz"), error(EIO)},
        {"put that lies", message(4, 1, 0, 9, 1, 0), error(EIO)},
        {"too long", message(3, 1, 0, 0, 2049, 5, std::string(2049, 'x')), error(EMSGSIZE)},
        {"too short for a header", header.substr(0, 27), error(ENOSYS)},
        {"no byte", "", error(ENOSYS)},
        {"kind 6", message(6, 1, 0, 0, 0, 0), error(ENOSYS)},
        {"word 0x1ff", "\xff\1" + header.substr(2), error(ENOSYS)},
        {"version 3", "\3\3" + header.substr(2), error(ENOSYS)},
        {"service -1", message(3, -1, 0, 0, 0, 0), error(ENOENT)},
        {"service that is none", message(3, 8, 0, 0, 0, 0), error(ENOENT)},
        {"open -1", message(3, 1, -1, 0, 0, 0), error(ENOENT)},
        {"open that is none", message(3, 1, 1, 0, 0, 0), error(ENOENT)},
        {"open of another service", message(1, 0, 0, 0, 28, 0), error(ENOENT)},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(mine.send(row.sent), row.answer) << row.name;
    }
    for (int kind = MSG_KIND_CLOSE; kind <= MSG_KIND_GET; kind++) { // ids of another's record
        EXPECT_EQ(other.send(message(kind, 1, 0, 7, 16, 16, event)), error(ENOENT));
    }
    EXPECT_EQ(mine.send(message(1, 1, 0, 0, 28, 0)), "0 ");
    EXPECT_EQ(mine.send(message(1, 1, 0, 0, 28, 0)), error(ENOENT));
    server.stop();
    EXPECT_EQ(server.service(1)->open_count, 0);
    EXPECT_EQ(server.records(1), 0);
}

} // namespace
} // namespace vantro::test
