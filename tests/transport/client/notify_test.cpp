// Notifications: a client that registered is notified of the answer to every accepted put.
#include <memory>
#include <set>

#include "tests/transport/support.h"

namespace vantro::test {
namespace {

class Notify : public BothModes {
  protected:
    Notify() : BothModes(1) {}
    // Puts under a tag and waits for the notification, which must name it.
    static void expect_told(MsgClient *client, uint32_t tag) {
        ASSERT_EQ(msgclient_put(client, tag, "x", 1, ECHO), 0);
        EXPECT_EQ(msgclient_wait_pulse(client), tag);
        char answer;
        EXPECT_EQ(msgclient_get(client, tag, &answer, sizeof answer, nullptr, 0), 0);
    }
};
IN_BOTH_MODES(Notify);

TEST_P(Notify, EveryClientOfOneProcessIsTold) {
    std::vector<std::unique_ptr<Client>> clients;
    for (uint32_t i = 0; i < 12; ++i) {
        clients.push_back(std::make_unique<Client>("s"));
        ASSERT_EQ(msgclient_notify_pulse(*clients.back(), 4), 0);
    }
    for (uint32_t i = 0; i < 12; ++i) {
        expect_told(*clients[i], i + 1);
    }
}

TEST_P(Notify, OneThatLastsIsToldWhileOthersComeAndGo) {
    const Client lasting("s");
    ASSERT_EQ(msgclient_notify_pulse(lasting, 4), 0);
    for (uint32_t i = 1; i < 20; ++i) {
        const Client passing("s");
        ASSERT_EQ(msgclient_notify_pulse(passing, 4), 0);
        expect_told(passing, i);
        expect_told(lasting, i);
        ASSERT_EQ(msgclient_notify_pulse(lasting, 4), 0) << "and asks again, many times";
    }
}

// The client takes no pulse before it has put everything: more than its socket holds.
TEST(NotifyLimit, EveryAcceptedPutIsAnnounced) {
    Server server(MSGSERVER_FLAG_NOCHECK, 4096, 10'000);
    ASSERT_EQ(server.add("s"), 0);
    server.start(1);
    const Client client("s");
    ASSERT_EQ(msgclient_notify_pulse(client, 10'000), 0);
    std::set<uint32_t> accepted;
    uint32_t tag = 0;
    int refused = 0;
    while (refused == 0 && tag < 9'000) {
        refused = msgclient_put(client, ++tag, "x", 1, ECHO);
        if (refused == 0) {
            accepted.insert(tag);
        }
    }
    EXPECT_GE(accepted.size(), 3'000u) << "as many as a client may reasonably be granted";
    EXPECT_EQ(refused, EAGAIN) << "and no end of them is kept";
    while (!accepted.empty()) {
        ASSERT_EQ(accepted.erase(msgclient_wait_pulse(client)), 1u);
    }
    EXPECT_EQ(msgclient_put(client, 1, "x", 1, ECHO), 0) << "there is room again";
    EXPECT_EQ(msgclient_wait_pulse(client), 1u);
}

} // namespace
} // namespace vantro::test
