// Open records: who holds them, who frees them, and clients and servers that die.
#include <atomic>

#include "transport/support.h"

namespace vantro::test {
namespace {

std::string open_message(const char *name) {
    return message(MSG_KIND_OPEN, 0, 0, 0, 0, 28, name + std::string(1, '\0'));
}

class Lifecycle : public BothModes {
  protected:
    /** Once no thread runs any more, nothing is left of any open. */
    void expect_nothing_left() {
        server.stop();
        for (int i = 0; server.service(i); i++) {
            EXPECT_EQ(server.records(i), 0);
            EXPECT_EQ(server.service(i)->open_count, 0);
        }
    }
};

class NameMode : public Lifecycle {};

IN_BOTH_MODES(Lifecycle);
INSTANTIATE_TEST_SUITE_P(Modes, NameMode, testing::Values(MSGSERVER_FLAG_NOCHECK));

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
    char text[] = "too late";
    const iovec part = {text, sizeof text};
    std::thread([&] { callout_reply2(held.open, held.receive_id, held.tag, 0, &part, 1); }).join();
    expect_nothing_left();
}

TEST_P(Lifecycle, RefusedOpen) {
    script.open_result = EDOM;
    EXPECT_EQ(Client("s").error, EDOM);
    script.wait([] { return script.vanished == 1; });
    expect_nothing_left();
}

TEST_P(Lifecycle, ClientKilledWhileItWaits) {
    const Client bystander("s");
    Peer peer({"ask", "s", std::to_string(ECHO), std::to_string(BLOCK)});
    script.wait([] { return script.blocked == 1; });
    peer.kill(SIGKILL);
    EXPECT_EQ(bystander.ask(ECHO), MSG_STATUS_QUEUED);
    script.change([] { script.unblock = true; });
    script.wait([] { return script.vanished == 1; });
    EXPECT_EQ(bystander.ask(ECHO), MSG_STATUS_QUEUED);
    EXPECT_EQ(server.locked([&] { return server.service()->open_count; }), 1);
}

TEST_P(Lifecycle, SweepMeetsAnOpenStillBeingDispatched) {
    const Client bystander("s");
    Peer peer({"ask", "s", std::to_string(BLOCK), std::to_string(ECHO)});
    script.wait([] { return script.blocked == 1; });
    EXPECT_EQ(server.records(), 2);
    peer.kill(SIGKILL);
    EXPECT_EQ(bystander.ask(ECHO), MSG_STATUS_QUEUED);
    // The only sweep there is must not miss the record.
    script.change([] { script.unblock = script.vanished == 0; });
    script.wait([] { return script.vanished == 1; });
    server.stop();
    EXPECT_EQ(server.records(), 1);
    EXPECT_EQ(server.service()->open_count, 1);
}

TEST_P(Lifecycle, ServerKilledWhileSixteenThreadsWait) {
    Peer peer({"serve", "victim", std::to_string(GetParam())});
    ASSERT_EQ(peer.line(), "added 0");
    const Client client("victim");
    ASSERT_EQ(client.error, 0);
    std::atomic<int> reset = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 16; i++)
        threads.emplace_back([&] { reset += client.ask(BLOCK) == ECONNRESET; });
    for (int i = 1; i <= 16; i++)
        EXPECT_EQ(peer.line(), "blocked " + std::to_string(i));
    peer.kill(SIGKILL);
    peer.wait();
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(reset, 16);
    EXPECT_EQ(msgclient_put(client, 1, "x", 1, ECHO), ECONNRESET);
    EXPECT_FALSE(Client("victim").client);
    EXPECT_EQ(server.add("victim"), 1); // the name is free for the next
}

TEST_P(NameMode, OneConnectionWithOpensInTwoServices) {
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

TEST_P(NameMode, IndicesThatRunOut) {
    const Raw raw("s");
    for (int i = 0; i < 1024; i++)
        ASSERT_EQ(raw.send(open_message("s")).substr(0, 2), "0 ");
    EXPECT_EQ(raw.send(open_message("s")), "error " + std::to_string(ENOMEM));
    EXPECT_EQ(server.records(), 1024); // one connection's share

    SlotArray &opens = *server.service()->opens;
    server.locked([&] { // as if others had taken all the rest but one
        opens.slots = static_cast<void **>(realloc(opens.slots, 32768 * sizeof(void *)));
        opens.slot_count = 32768;
        for (int i = 1024; i < 32768; i++)
            opens.slots[i] = i < 32767 ? calloc(1, sizeof(MsgOsb)) : nullptr;
        return 0;
    });
    const Client last("s");
    ASSERT_EQ(last.error, 0);
    EXPECT_EQ(last.client->open_index, 32767);
    EXPECT_EQ(last.ask(ECHO), MSG_STATUS_QUEUED);
    EXPECT_EQ(Client("s").error, ENOMEM);
    EXPECT_EQ(server.records(), 32768);
    server.stop();
    for (int i = 1024; i < 32767; i++)
        _array_del(&opens, i);
}

} // namespace
} // namespace vantro::test
