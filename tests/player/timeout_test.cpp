// Time limits: an answer that comes late or never does not reach a later call. Also why calls fail.
#include <atomic>
#include <cerrno>
#include <cstring>
#include <thread>
#include <vector>

#include <vantro/catalogue.h>
#include <vantro/extras.h>
#include <vantro/platform/limits.h>
#include <vantro/platform/message.h>
#include <vantro/protocol.h>

#include "tests/player/service.h"

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int rounds = 101;
constexpr int unanswered_calls = 1'000;
#else
constexpr int rounds = 301;
constexpr int unanswered_calls = 10'000;
#endif

int32_t last_reason() {
    return vantro_last_failure(nullptr);
}

class TimedPlayer : public Player {
  protected:
    void TearDown() override {
        take(requests);
        take(lines);
        errno = 77;
        Player::TearDown();
    }
};

// Every second request is answered with the next one, when nobody waits for it any more.
TEST_F(TimedPlayer, LateAnswersReachNobody) {
    will_respond([late = 0](MsgOsb *open, MsgContext *context) mutable {
        int32_t position;
        std::memcpy(&position, static_cast<const char *>(context->payload) + sizeof(RequestHeader),
                    sizeof position);
        const auto reply = [header = *context->header](int receive_id, int32_t result) {
            TransportHeader answer = header;
            answer.reply_length = sizeof result;
            const iovec parts[] = {{&answer, sizeof answer}, {&result, sizeof result}};
            return ipc_replyv(receive_id, 0, parts, 2);
        };
        _msgserver_lock_then_decr_inuse_and_release_osb_if_closed(open);
        if (position % 2 == 1) {
            late = context->receive_id;
            return 0;
        }
        if (late != 0) {
            EXPECT_EQ(reply(std::exchange(late, 0), 5), -1); // the client no longer waits for it
        }
        return reply(context->receive_id, position % 4);
    });
    EXPECT_EQ(vantro_set_timeout(handle, 1), 0);
    for (int position = 1; position < 2 * rounds && !HasFailure(); position += 2) {
        errno = 77;
        EXPECT_EQ(vantro_seek(handle, position), -1);
        EXPECT_EQ(errno, ETIMEDOUT);
        EXPECT_EQ(last_reason(), VANTRO_FAILURE_TIMED_OUT);
        EXPECT_EQ(take(lines), (Lines{"3 msgclient_putgetv() failed: Connection timed out",
                                      "5 vantro_seek() failed"}));
        vantro_set_timeout(handle, 10'000);
        EXPECT_EQ(vantro_seek(handle, position + 1), (position + 1) % 4 == 0 ? 0 : -1);
        take(lines);
        vantro_set_timeout(handle, 1);
    }
    VantroFailure failure;
    EXPECT_EQ(vantro_last_failure(&failure), VANTRO_FAILURE_REFUSED);
    EXPECT_EQ(failure.number, 2);
    EXPECT_STREQ(failure.text, "the service refused: No such file or directory");
    vantro_set_timeout(handle, -1);
}

// However often a service that never answers is asked, nothing is leaked.
TEST_F(TimedPlayer, ThousandsOfCallsTimeOutOnOneHandle) {
    const auto descriptors = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    const auto before = descriptors();
    will_respond([](MsgOsb *open, MsgContext *) {
        _msgserver_lock_then_decr_inuse_and_release_osb_if_closed(open);
        return 0;
    });
    vantro_set_timeout(handle, 1);
    std::vector<std::thread> threads;
    std::atomic<int> timed_out = 0;
    while (threads.size() < 50) { // at once, since each call waits for a few milliseconds
        threads.emplace_back([&] {
            for (int i = 0; i < unanswered_calls / 50; ++i) {
                timed_out += vantro_pause(handle) == -1 && errno == ETIMEDOUT &&
                             last_reason() == VANTRO_FAILURE_TIMED_OUT;
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(timed_out, unanswered_calls);
    vantro_set_timeout(handle, -1);
    will_respond(nullptr);
    will_answer(words({0, 4'711}));
    int32_t position = 0;
    EXPECT_EQ(vantro_get_current_track_position(handle, &position), 0);
    EXPECT_EQ(position, 4'711);
    EXPECT_LE(descriptors(), before + 2 * IPC_LANES_MAX); // lanes stay, for the next calls
}

// A long answer comes in two steps, first its length and then its bytes, and the second may come
// late.
TEST_F(TimedPlayer, AnAnswerThatStopsBetweenItsPiecesIsGivenUp) {
    const std::string name(VANTRO_REPLY_AREA, 'x');
    std::atomic<bool> held = false;
    will_respond([&](MsgOsb *open, MsgContext *context) {
        const std::string all = words({0, 1, VANTRO_NODE_SONG, 0, 1, 1}) + text("id") + text(name);
        callout_reply(open, context, 0, all.data(), static_cast<int32_t>(all.size()));
        guard.unlock(); // the client logs meanwhile
        held.wait(true);
        guard.lock();
        return 0;
    });
    MediaNode *nodes = nullptr;
    int count = 1;
    for (int round = 0; round < 10; ++round) {
        held = true;
        vantro_set_timeout(handle, 20);
        EXPECT_EQ(vantro_browse(handle, 1, "", 0, &count, &nodes), -1);
        EXPECT_EQ(last_reason(), VANTRO_FAILURE_TIMED_OUT);
        EXPECT_EQ(nodes, nullptr);
        held = false;
        held.notify_all();
        vantro_set_timeout(handle, 60'000);
        ASSERT_EQ(vantro_browse(handle, 1, "", 0, &count, &nodes), 0);
        EXPECT_EQ(nodes[0].name, name);
        vantro_free_media_nodes(std::exchange(nodes, nullptr), count);
    }
    will_respond(nullptr); // before the variables that it uses are gone
    vantro_set_timeout(handle, -1);
}

TEST_F(TimedPlayer, FailuresSayWhy) {
    const struct {
        const char *what;
        std::string answer;
        int (*call)(VantroHandle *);
        int32_t reason, number;
    } rows[] = {
        {"refused", words({EBUSY}), vantro_play, VANTRO_FAILURE_REFUSED, EBUSY},
        {"empty", "", vantro_play, VANTRO_FAILURE_MALFORMED, EPROTO},
        {"a listing refused", words({ENOENT}),
         [](VantroHandle *with) {
             MediaNode *nodes = nullptr;
             int count = 0;
             return vantro_browse(with, 1, "", 0, &count, &nodes);
         },
         VANTRO_FAILURE_REFUSED, ENOENT},
        {"a listing that ends early", words({0, 3, 1}),
         [](VantroHandle *with) {
             MediaNode *nodes = nullptr;
             int count = 0;
             return vantro_browse(with, 1, "", 0, &count, &nodes);
         },
         VANTRO_FAILURE_MALFORMED, EPROTO},
        {"a state that ends early", words({0, 1}),
         [](VantroHandle *with) {
             VantroStateInfo *info = nullptr;
             return vantro_get_current_state(with, &info);
         },
         VANTRO_FAILURE_MALFORMED, EPROTO},
        {"an argument", words({0}), [](VantroHandle *with) { return vantro_repeat(with, 9); },
         VANTRO_FAILURE_INVALID, EINVAL},
        {"another player", words({0}),
         [](VantroHandle *with) { return vantro_open(with, "other"); }, VANTRO_FAILURE_INVALID,
         EBUSY},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        will_answer(row.answer);
        EXPECT_EQ(row.call(handle), -1);
        VantroFailure failure;
        EXPECT_EQ(vantro_last_failure(&failure), row.reason);
        EXPECT_EQ(failure.number, row.number);
    }
    EXPECT_EQ(errno, 77);
    for (const bool connects : {false, true}) {
        vantro_open(handle, "other"); // invalid too, but with another number
        VantroFailure failure;
        EXPECT_FALSE(connects ? vantro_connect_timed(0) != nullptr
                              : vantro_set_timeout(handle, 0) == 0);
        EXPECT_EQ(std::exchange(errno, 77), EINVAL);
        EXPECT_EQ(vantro_last_failure(&failure), VANTRO_FAILURE_INVALID);
        EXPECT_EQ(failure.number, EINVAL);
    }
}

} // namespace
