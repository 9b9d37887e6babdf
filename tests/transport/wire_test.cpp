// The bytes of every message, both ways, and what a server makes of bytes that are none.
#include <cerrno>
#include <future>

#include <vantro/platform/names.h>

#include "transport/support.h"

namespace vantro::test {
namespace {

/** The client half against a bare channel: what it sends, and what it makes of the answer. */
TEST(Wire, WhatTheClientSends) {
    const int channel = channel_create(0);
    path_dispatch *dispatch = path_dispatch_create(channel, 0);
    ASSERT_TRUE(global_name_attach(dispatch, "csm/golden/two", 0));
    MsgClient *client = nullptr;
    char data[] = "abcdefgh";
    char answer[8] = {};
    uint32_t length = 0;
    const iovec parts[] = {{data, 3}, {data + 3, 2}};
    const ipc_event event = {IPC_EVENT_PULSE, 0x01020304, 0, 5, 10};

    const struct {
        const char *name;
        std::function<int()> call;
        const char *sent;
        int status;
        const char *reply;
        int result;
    } rows[] = {
        {"open", [&] { return (client = msgclient_open("golden", "two", 0xabcd)) ? 0 : errno; },
         "0002 cdab 0000 0000 00000000 07000000 1c000000 0000000000000000 676f6c64656e00", 0,
         "0002 cdab 0700 0900 00000000 07000000 1c000000 0000000000000000", 0},
        {"notify", [&] { return msgclient_notify(client, 4, &event); },
         "0202 0000 0700 0900 00000000 10000000 04000000 0000000000000000"
         "04000000 04030201 00000000 0500 0a00",
         0, "", 0},
        {"putget", [&] { return msgclient_putget(client, data, 5, answer, 8, &length, 0x1234); },
         "0302 3412 0700 0900 00000000 05000000 08000000 0000000000000000 6162636465", 0,
         "0302 3412 0700 0900 00000000 05000000 02000000 0000000000000000 7879", 0},
        {"put", [&] { return msgclient_putv(client, 0x11223344, parts, 2, 1); },
         "0402 0100 0700 0900 44332211 05000000 ffffff7f 0000000000000000 6162636465", 17, "", 17},
        {"get", [&] { return msgclient_get(client, 0x11223344, answer, 8, &length, 2); },
         "0502 0200 0700 0900 44332211 00000000 08000000 0000000000000000", MSG_STATUS_QUEUED,
         "0000 0000 0000 0000 00000000 00000000 09000000 0000000000000000", MSG_STATUS_QUEUED},
        {"close", [&] { return msgclient_close(client); },
         "0102 0000 0700 0900 00000000 1c000000 00000000 0000000000000000", 0, "", 0},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        auto result = std::async(std::launch::async, row.call);
        std::string received(256, '\0');
        const iovec whole = {received.data(), received.size()};
        ipc_info info = {};
        const int id = ipc_receive(channel, &whole, 1, &info);
        received.resize(static_cast<size_t>(info.msg_length));
        EXPECT_EQ(to_hex(received), to_hex(from_hex(row.sent)));
        const std::string reply = from_hex(row.reply);
        EXPECT_EQ(ipc_reply(id, row.status, reply.data(), reply.size()), 0);
        EXPECT_EQ(result.get(), row.result);
    }
    EXPECT_EQ(std::string(answer), "xy");
    EXPECT_EQ(length, 9u);
    channel_destroy(channel);
    path_dispatch_destroy(dispatch);
}

/** The server half against raw bytes, in one conversation: each row builds on those before it. */
TEST(Wire, WhatTheServerAnswers) {
    Server server(MSGSERVER_FLAG_NOCHECK, 2048, 16);
    ASSERT_EQ(server.add("alpha"), 0);
    ASSERT_EQ(server.add("beta"), 1);
    ASSERT_EQ(server.add("beta", nullptr, "second"), 2); // never found: the lowest index wins
    server.start(2);
    const Raw mine("beta");
    const Raw other("beta");
    const auto error = [](int number) { return "error " + std::to_string(number); };
    const std::string header = message(3, 1, 0, 0, 4, 4);

    const struct {
        const char *name;
        std::string sent;
        std::string answer;
    } rows[] = {
        {"open",
         from_hex("0002 0500 0000 0000 00000000 05000000 1c000000 0000000000000000"
                  "6265746100"),
         "0 00020500010000000000000005000000"
         "1c0000000000000000000000"},
        {"open without a NUL", message(0, 0, 0, 0, 5, 28, "beta"), error(ENOENT)},
        {"open of nothing", message(0, 0, 0, 0, 0, 28), error(ENOENT)},
        {"open of a longer name", message(0, 0, 0, 0, 6, 28, std::string("beta2\0", 6)),
         error(ENOENT)},
        {"put before notify, tag 0", message(4, 1, 0, 0, 0, 0), error(EAGAIN)},
        {"notify of 15 bytes", message(2, 1, 0, 0, 16, 1, std::string(15, 'e')), error(EINVAL)},
        {"notify, limit 0", message(2, 1, 0, 0, 16, 0, std::string(16, 'e')), "0"},
        {"notify, limit 100", message(2, 1, 0, 0, 16, 100, std::string(16, 'e')), "0"},
        {"put, tag 0", message(4, 1, 0, 0, 0, 0), error(EINVAL)},
        {"put", message(4, 1, 0, 7, 2, 0, "hi"), "0"},
        {"get too short", message(5, 1, 0, 7, 0, 1),
         "240 " + to_hex(message(0, 0, 0, 0, 0, 2)).replace(2, 2, "00")},
        {"get", message(5, 1, 0, 7, 0, 2),
         "0 " + to_hex(message(0, 0, 0, 0, 0, 2, "hi")).replace(2, 2, "00")},
        {"get again", message(5, 1, 0, 7, 0, 2), error(ENOMSG)},
        {"putget", message(3, 1, 0, 0, 4, 4, "abcd"),
         "0 " + to_hex(message(3, 1, 0, 0, 4, 4, "abcd"))},
        {"putget of more than is there", message(3, 1, 0, 0, 5, 5, "wxyz"), error(EIO)},
        {"putget of far more", message(3, 1, 0, 0, 0xffffffff, 5, "wxyz"), error(EIO)},
        {"put of more than is there", message(4, 1, 0, 9, 1, 0), error(EIO)},
        {"putget of more than the server takes",
         message(3, 1, 0, 0, 2049, 5, std::string(2049, 'x')), error(EMSGSIZE)},
        {"too short for a header", header.substr(0, 27), error(ENOSYS)},
        {"one byte", "x", error(ENOSYS)},
        {"no byte", "", error(ENOSYS)},
        {"kind 6", message(6, 1, 0, 0, 0, 0), error(ENOSYS)},
        {"kind before open", from_hex("ff01") + header.substr(2), error(ENOSYS)},
        {"version 3", from_hex("0303") + header.substr(2), error(ENOSYS)},
        {"service -1", message(3, -1, 0, 0, 0, 0), error(ENOENT)},
        {"service that is none", message(3, 8, 0, 0, 0, 0), error(ENOENT)},
        {"open -1", message(3, 1, -1, 0, 0, 0), error(ENOENT)},
        {"open that is none", message(3, 1, 1, 0, 0, 0), error(ENOENT)},
        {"open of another service", message(1, 0, 0, 0, 28, 0), error(ENOENT)},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(mine.send(row.sent), row.answer);
        if (row.sent.size() >= 28 && row.sent[0] != 0 && row.answer != error(ENOSYS) &&
            row.answer != error(EIO) && row.answer != error(EMSGSIZE)) {
            EXPECT_EQ(other.send(row.sent), error(ENOENT)); // not its record
        }
    }
    EXPECT_EQ(server.locked([&] {
        return static_cast<MsgOsb *>(_array_get(server.service(1)->opens, 0))->queue_limit;
    }),
              16);
    EXPECT_EQ(mine.send(message(1, 1, 0, 0, 28, 0)), "0");
    EXPECT_EQ(mine.send(message(1, 1, 0, 0, 28, 0)), error(ENOENT));
    server.stop();
    EXPECT_EQ(server.service(1)->open_count, 0);
    EXPECT_EQ(server.records(1), 0);
}

} // namespace
} // namespace vantro::test
