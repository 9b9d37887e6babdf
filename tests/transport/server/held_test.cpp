// Answers that the server holds: too long, answered to a put, never fetched.
#include "tests/transport/support.h"

namespace vantro::test {
namespace {

class HeldAnswers : public BothModes {
  protected:
    // Asks for an answer of that length with no room for it.
    static int fill(MsgClient *asking, uint32_t length, int32_t status = 0,
                    uint32_t *answer_length = nullptr) {
        const int32_t wanted[] = {static_cast<int32_t>(length), status};
        return msgclient_putget(asking, wanted, sizeof wanted, nullptr, 0, answer_length, FILL);
    }

    // The answer; if it cannot be fetched, its announced length.
    static int get(MsgClient *asking, uint32_t tag, std::string *answer, size_t capacity) {
        answer->assign(capacity, '\0');
        uint32_t length = 0;
        const int result =
            msgclient_get(asking, tag, answer->data(), static_cast<uint32_t>(capacity), &length, 0);
        if (result == MSG_STATUS_QUEUED) {
            *answer = std::to_string(length);
        } else {
            answer->resize(length);
        }
        return result;
    }

    Client client{"s"};
};

IN_BOTH_MODES(HeldAnswers);

TEST_P(HeldAnswers, LongAnswerIsFetched) {
    for (const uint32_t length : {1u, 200u, 131072u, 1u << 20}) {
        std::string answer;
        uint32_t announced = 0;
        EXPECT_EQ(fill(client, length, 17, &announced), MSG_STATUS_QUEUED);
        EXPECT_EQ(announced, length);
        EXPECT_EQ(get(client, 0, &answer, length - 1), MSG_STATUS_QUEUED);
        EXPECT_EQ(answer, std::to_string(length));
        EXPECT_EQ(get(client, 0, &answer, length + 1), 17);
        EXPECT_EQ(answer, std::string(length, 'f'));
        EXPECT_EQ(get(client, 0, &answer, length), ENOMSG);
    }
}

TEST_P(HeldAnswers, PutsAreAnnouncedAndFetchedNewestFirst) {
    EXPECT_EQ(msgclient_wait_pulse(client), 0u); // no private channel yet
    EXPECT_EQ(msgclient_put(client, 5, "a", 1, ECHO), EAGAIN);
    EXPECT_EQ(msgclient_notify_pulse(client, 1), 0);
    const int first_channel = client.client->pulse_channel;
    EXPECT_EQ(msgclient_notify_pulse(client, 3), 0);
    EXPECT_EQ(channel_destroy(first_channel), -1); // replaced
    EXPECT_EQ(msgclient_put(client, 0, "a", 1, ECHO), EINVAL);

    for (const char *text : {"A", "B"}) {
        EXPECT_EQ(msgclient_put(client, 5, text, 1, ECHO), 0);
        EXPECT_EQ(msgclient_wait_pulse(client), 5u);
    }
    EXPECT_EQ(msgclient_put(client, 0x80000001, "", 0, ECHO), 0);
    EXPECT_EQ(msgclient_wait_pulse(client), 0x80000001u);
    EXPECT_EQ(msgclient_put(client, 6, "D", 1, ECHO), EAGAIN); // three are held

    std::string answer;
    EXPECT_EQ(get(client, 6, &answer, 9), ENOMSG);
    for (const char *text : {"B", "A"}) {
        EXPECT_EQ(get(client, 5, &answer, 9), 0);
        EXPECT_EQ(answer, text);
    }
    EXPECT_EQ(get(client, 0x80000001, &answer, 9), 0);
    EXPECT_EQ(answer, "");
}

TEST_P(HeldAnswers, PutAnsweredLaterFromAnotherThread) {
    ASSERT_EQ(msgclient_notify_pulse(client, 4), 0);
    EXPECT_EQ(msgclient_put(client, 7, "x", 1, LATER), 0);
    script.wait([] { return script.held.size() == 1; });
    std::thread([] {
        char text[] = "later";
        const iovec parts[] = {{text, 2}, {nullptr, 0}, {text + 2, 3}};
        const Held &held = script.held[0];
        EXPECT_EQ(held.open->server->reply2(held.open, held.receive_id, held.tag, 3, parts, 3), 0);
    }).join();
    EXPECT_EQ(msgclient_wait_pulse(client), 7u);
    std::string answer;
    EXPECT_EQ(get(client, 7, &answer, 9), 3);
    EXPECT_EQ(answer, "later");
}

TEST_P(HeldAnswers, OldAnswersThatNobodyFetchedMakeRoom) {
    constexpr uint32_t mib = 1 << 20;
    std::string answer;
    const auto held_mib = [&] {
        return server.locked([&] {
            int64_t bytes = 0;
            const SlotArray &opens = *server.service()->opens;
            for (int i = 0; i < opens.slot_count; i++) {
                const auto *open = static_cast<const MsgOsb *>(opens.slots[i]);
                for (auto *held = open ? open->pending : nullptr; held; held = held->next) {
                    bytes += held->length;
                }
            }
            return bytes / mib;
        });
    };
    for (int i = 0; i < 3; i++) {
        ASSERT_EQ(fill(client, 17 * mib), MSG_STATUS_QUEUED) << i; // a first may have any length
    }
    EXPECT_EQ(held_mib(), 17);
    for (uint32_t i = 1; i <= 20; i++) {
        ASSERT_EQ(fill(client, mib + i), MSG_STATUS_QUEUED) << i;
    }
    EXPECT_EQ(held_mib(), 16);
    for (uint32_t i = 1; i <= 100; i++) {
        ASSERT_EQ(fill(client, i), MSG_STATUS_QUEUED) << i;
    }
    EXPECT_EQ(get(client, 0, &answer, mib), 0);
    EXPECT_EQ(answer.size(), 100u) << "the newest is there";

    const Client second("s");
    ASSERT_EQ(msgclient_notify_pulse(second, 70), 0);
    for (int i = 0; i < 70; i++) {
        ASSERT_EQ(msgclient_put(second, 1, "", 0, ECHO), 0) << i;
        ASSERT_EQ(msgclient_wait_pulse(second), 1u) << "its answer is held when the pulse comes";
    }
    EXPECT_EQ(msgclient_put(second, 1, "", 0, ECHO), EAGAIN);
    EXPECT_EQ(fill(second, 1), ENOMEM) << "another tag's answers are not dropped for it";
    EXPECT_EQ(get(second, 1, &answer, 1), 0);
    EXPECT_EQ(fill(second, 1), MSG_STATUS_QUEUED);
}

} // namespace
} // namespace vantro::test
