// Open records: who holds them, who frees them, and clients and servers that die.
#include <atomic>

#include <sys/resource.h>

#include "tests/transport/support.h"

namespace vantro::test {
namespace {

class Lifecycle : public BothModes {
  protected:
    // When no thread runs any more, nothing is left of any open.
    void expect_nothing_left() {
        server.stop();
        for (int i = 0; server.service(i); i++) {
            EXPECT_EQ(server.records(i), 0);
            EXPECT_EQ(server.service(i)->open_count, 0);
        }
    }
};

IN_BOTH_MODES(Lifecycle);

TEST_P(Lifecycle, PutAnsweredAfterItsClientClosed) {
    {
        const Client client("s");
        ASSERT_EQ(msgclient_notify_pulse(client, 4), 0);
        EXPECT_EQ(msgclient_put(client, 7, "x", 1, LATER), 0);
        script.wait([] { return script.held.size() == 1; });
    }
    script.wait([] { return script.closes == 1 && script.vanished == 1; });
    EXPECT_EQ(server.records(), 1); // for the answer owed
    const Held held = script.held[0];
    EXPECT_EQ(held.open->conn_id,
              -1); // the id may soon be another client's, which must not get this record
    char text[] = "too late";
    const iovec part = {text, sizeof text};
    std::thread([&] { callout_reply2(held.open, held.receive_id, held.tag, 0, &part, 1); }).join();
    expect_nothing_left();
}

TEST_P(Lifecycle, AnOrdinaryCloseIsToldOnce) {
    constexpr int clients = 4, rounds = 1000;
    server.start(8 - 3);
    std::vector<std::thread> threads;
    threads.reserve(clients);
    for (int i = 0; i < clients; i++) {
        threads.emplace_back([] {
            for (int round = 0; round < rounds; round++) {
                const Client client("s");
                EXPECT_EQ(client.ask(ECHO), MSG_STATUS_QUEUED);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    const Client last("s"); // by now every earlier message is handled; its sweeps follow
    script.wait([] { return script.closes >= clients * rounds; });
    server.stop();
    EXPECT_EQ(script.closes, clients * rounds);
    EXPECT_EQ(script.vanished, 0);
}

TEST_P(Lifecycle, ClientKilledWhileItOpensOrWaits) {
    const Client bystander("s");
    for (const auto &[open_code, code] : {std::pair{BLOCK, ECHO}, std::pair{ECHO, BLOCK}}) {
        script.change([] {
            script.unblock = false;
            script.blocked = script.vanished = 0;
        });
        Peer peer({"ask", "s", std::to_string(open_code), std::to_string(code)});
        script.wait([] { return script.blocked == 1; });
        EXPECT_EQ(server.records(), 2);
        peer.kill(SIGKILL);
        EXPECT_EQ(bystander.ask(ECHO), MSG_STATUS_QUEUED);
        // There is only one sweep, which must not miss the record.
        script.change([] { script.unblock = script.vanished == 0; });
        script.wait([] { return script.vanished == 1; });
        EXPECT_EQ(bystander.ask(ECHO), MSG_STATUS_QUEUED);
    }
    server.stop();
    EXPECT_EQ(server.records(), 1);
    EXPECT_EQ(server.service()->open_count, 1);
}

TEST_P(Lifecycle, ServerOutOfDescriptorsAndKilledWhileSixteenThreadsWait) {
    Peer peer({"serve", "victim", std::to_string(GetParam())});
    ASSERT_EQ(peer.line(), "added 0");
    const pid_t pid = std::stoi(peer.line().substr(4));
    const Client client("victim");
    ASSERT_EQ(client.error, 0);

    // An answer that cannot be sent or received for now is still held.
    const int32_t wanted[] = {1 << 20, 0};
    EXPECT_EQ(msgclient_putget(client, wanted, sizeof wanted, nullptr, 0, nullptr, FILL),
              MSG_STATUS_QUEUED);
    std::string answer(1 << 20, '\0');
    for (const pid_t process : {pid, getpid()}) {
        rlimit before;
        ASSERT_EQ(prlimit(process, RLIMIT_NOFILE, nullptr, &before), 0);
        const rlimit limit = {3, before.rlim_max};
        ASSERT_EQ(prlimit(process, RLIMIT_NOFILE, &limit, nullptr), 0);
        EXPECT_EQ(msgclient_get(client, 0, answer.data(), 1 << 20, nullptr, 0), EMFILE);
        ASSERT_EQ(prlimit(process, RLIMIT_NOFILE, &before, nullptr), 0);
    }
    EXPECT_EQ(msgclient_get(client, 0, answer.data(), 1 << 20, nullptr, 0), 0);
    EXPECT_EQ(answer, std::string(1 << 20, 'f'));

    std::atomic<int> reset = 0;
    std::vector<std::thread> threads;
    threads.reserve(16);
    for (int i = 0; i < 16; i++) {
        threads.emplace_back([&] { reset += client.ask(BLOCK) == ECONNRESET; });
    }
    for (int i = 1; i <= 16; i++) {
        EXPECT_EQ(peer.line(), "blocked " + std::to_string(i));
    }
    peer.kill(SIGKILL);
    peer.wait();
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(reset, 16);
    EXPECT_EQ(msgclient_put(client, 1, "x", 1, ECHO), ECONNRESET);
    EXPECT_FALSE(Client("victim").client);
    EXPECT_EQ(server.add("victim"), 1); // the name is free for the next
}

TEST_P(Lifecycle, OneConnectionWithOpensInTwoServices) {
    ASSERT_EQ(server.add("t"), 1);
    {
        const Raw raw("s");
        EXPECT_EQ(raw.send(open_message("s")).substr(0, 2), "0 ");
        EXPECT_EQ(raw.send(open_message("t")).substr(0, 2), "0 ");
        EXPECT_EQ(raw.send(message(MSG_KIND_PUTGET, 1, 0, 0, 2, 2, "ok")).substr(0, 2), "0 ");
    }
    script.wait([] { return script.vanished == 2; });
    expect_nothing_left();
}

TEST_P(Lifecycle, OnlyAnAcceptedOpenTakesRequests) {
    const std::string request = message(MSG_KIND_PUTGET, 0, 0, 0, 2, 2, "ok");
    for (const int result : {EDOM, -EDOM}) {
        script.change([&] {
            script.open_result = result;
            script.unblock = false;
            script.blocked = script.vanished = 0;
        });
        {
            const Raw raw("s");
            std::thread opening(
                [&] { EXPECT_EQ(raw.send(open_message("s", BLOCK)), error(EDOM)); });
            script.wait([] { return script.blocked == 1; });
            EXPECT_EQ(raw.send(request), error(ENOENT));
            script.change([] { script.unblock = true; });
            opening.join();
            EXPECT_EQ(raw.send(request), error(ENOENT));
            EXPECT_EQ(Client("s").error, EDOM);
        }
        script.wait([] { return script.vanished == 2; });
    }
    expect_nothing_left();
}

TEST_P(Lifecycle, IndicesThatRunOut) {
    const Raw raw("s");
    for (int i = 0; i < 32; i++) {
        ASSERT_EQ(raw.send(open_message("s")).substr(0, 2), "0 ");
    }
    EXPECT_EQ(raw.send(open_message("s")), error(ENOMEM));
    EXPECT_EQ(server.records(), 32); // one connection's share

    SlotArray &opens = *server.service()->opens;
    server.locked([&] { // as if others held all records but one
        opens.slots = static_cast<void **>(realloc(opens.slots, 32768 * sizeof(void *)));
        opens.slot_count = 32768;
        for (int i = 32; i < 32768; i++) {
            opens.slots[i] = i < 32767 ? calloc(1, sizeof(MsgOsb)) : nullptr;
        }
        return 0;
    });
    const Client last("s");
    ASSERT_EQ(last.error, 0);
    EXPECT_EQ(last.client->open_index, 32767);
    EXPECT_EQ(last.ask(ECHO), MSG_STATUS_QUEUED);
    EXPECT_EQ(Client("s").error, ENOMEM);
    EXPECT_EQ(server.records(), 32768);
    server.stop();
    for (int i = 32; i < 32767; i++) {
        _array_del(&opens, i);
    }
}

} // namespace
} // namespace vantro::test
