// The player API against a service of our own on the library's server half: the bytes that the
// service sees, the result of a call for each answer, and every line of the log.
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include <vantro/extras.h>

#include "player/handle.h"
#include "player/log.h"
#include "tests/player/service.h"

namespace {

TEST_F(Player, OpensAndClosesOneTurnAfterTheOther) {
    const std::string granted = words({0}), refused = words({5}), held = words({0, 0});
    const std::string most(31, 'm'), too_long(32, 'l');
    struct Step {
        int (*call)(VantroHandle *, const char *);
        const char *name;
        std::string answer;
        int result, error; // 77: errno is left alone.
        std::string sent, line;
    } const steps[] = {
        {vantro_open, nullptr, granted, -1, EINVAL, "", "5 player name is null or empty"},
        {vantro_open, "", granted, -1, EINVAL, "", "5 player name is null or empty"},
        {vantro_open, too_long.c_str(), granted, -1, ENAMETOOLONG, "", "5 player name is too long"},
        {vantro_open, "Main", granted, -1, 77, "",
         "5 The client is connected to main. Close it first"},
        {vantro_open, "main", granted, 0, 77, "", "5 The client already connected to main"},
        {vantro_close, nullptr, granted, -1, 77, "", "5 Player name is null or empty"},
        {vantro_close, "Main", granted, -1, 77, "", "5 The player is not connected to Player Main"},
        {vantro_close, "main", refused, -1, 77, request(1, text("main")),
         "5 vantro_close() failed"},
        {vantro_close, "main", held, -1, 77, request(1, text("main")),
         "3 msgclient_putgetv() failed: Unknown error 240"},
        {vantro_close, "main", granted, 0, 77, request(1, text("main")), ""},
        {vantro_close, "main", granted, -1, 77, "", "5 The client is not connected to any players"},
        {vantro_open, most.c_str(), refused, -1, 77, request(0, text(most)),
         "5 vantro_open() failed"},
        {vantro_open, most.c_str(), granted, 0, 77, request(0, text(most)), ""},
    };
    for (const Step &step : steps) {
        SCOPED_TRACE(std::string(step.call == vantro_open ? "open " : "close ") +
                     (step.name ? step.name : "null") + ": " + step.line);
        will_answer(step.answer);
        EXPECT_EQ(step.call(handle, step.name), step.result);
        EXPECT_EQ(std::exchange(errno, 77), step.error);
        EXPECT_EQ(take(requests), step.sent.empty() ? Lines{} : Lines{step.sent});
        EXPECT_EQ(take(lines), step.line.empty() ? Lines{} : Lines{step.line});
    }
    // A line is cut to 1023 characters.
    EXPECT_EQ(vantro_close(handle, std::string(2000, 'e').c_str()), -1);
    EXPECT_EQ(take(lines).at(0).size() + std::strlen(program_invocation_short_name), 1023);
    // Ending the handle closes the player first, and goes on if that is refused.
    will_answer(refused);
    EXPECT_EQ(vantro_disconnect(std::exchange(handle, vantro_connect())), 0);
    EXPECT_EQ(take(requests), Lines{request(1, text(most))});
    EXPECT_EQ(take(lines), Lines{"5 vantro_close() failed"});
}

TEST_F(Player, FailuresLeaveErrnoButWhereTheyShouldNot) {
    EXPECT_EQ(vantro_open(nullptr, "main"), -1);
    EXPECT_EQ(std::exchange(errno, 77), EINVAL);
    EXPECT_EQ(vantro_close(nullptr, "main"), -1);
    EXPECT_EQ(vantro_disconnect(nullptr), -1);
    EXPECT_EQ(take(lines), Lines(3, "5 Invalid vantro handle"));

    handle->connection->open_index++; // The server has no such record.
    EXPECT_EQ(vantro_play(handle), -1);
    EXPECT_EQ(vantro_close(handle, "main"), -1);
    EXPECT_EQ(take(lines), (Lines{"3 msgclient_putget() failed: No such file or directory",
                                  "5 vantro_play() failed",
                                  "3 msgclient_putgetv() failed: No such file or directory"}));
    handle->connection->open_index--;
    EXPECT_EQ(errno, 77);

    setenv("XDG_RUNTIME_DIR", (directory + "/nobody").c_str(), 1);
    EXPECT_EQ(vantro_connect(), nullptr);
    EXPECT_EQ(std::exchange(errno, 77), ENOENT);
    EXPECT_EQ(take(lines), Lines{"3 msgclient_open failed (No such file or directory)"});
    setenv("XDG_RUNTIME_DIR", directory.c_str(), 1);
}

// Gives all calls with one request and one answer the same form: `got` receives the answer's
// content.
template <int (*command)(VantroHandle *)>
int tell(VantroHandle *handle, std::string &) {
    return command(handle);
}

template <class Record, int (*query)(VantroHandle *, Record **)>
int ask(VantroHandle *handle, std::string &got) {
    Record *record = nullptr;
    const int result = query(handle, &record);
    EXPECT_EQ(record != nullptr, result == 0);
    if (record) {
        got.assign(reinterpret_cast<const char *>(record), sizeof *record);
    }
    free(record);
    return result;
}

int ask_position(VantroHandle *handle, std::string &got) {
    int32_t position = 55;
    const int result = vantro_get_current_track_position(handle, &position);
    EXPECT_EQ(position != 55, result == 0);
    got = words({position});
    return result;
}

struct SimpleCall {
    const char *name;
    int (*call)(VantroHandle *, std::string &);
    std::string sent, record;
};

const std::vector<SimpleCall> &simple_calls() {
    using Handle = VantroHandle *;
    using Out = std::string &;
    static const std::vector<SimpleCall> calls{
        {"vantro_play", tell<vantro_play>, request(15), ""},
        {"vantro_stop", tell<vantro_stop>, request(16), ""},
        {"vantro_pause", tell<vantro_pause>, request(17), ""},
        {"vantro_next", tell<vantro_next>, request(19), ""},
        {"vantro_previous", tell<vantro_previous>, request(20), ""},
        {"vantro_seek", [](Handle h, Out) { return vantro_seek(h, -7); }, request(21, words({-7})),
         ""},
        {"vantro_set_playback_rate",
         [](Handle h, Out) { return vantro_set_playback_rate(h, 2.0F); },
         request(22, words({0x40000000})), ""},
        {"vantro_shuffle", [](Handle h, Out) { return vantro_shuffle(h, 1); },
         request(23, words({1})), ""},
        {"vantro_repeat", [](Handle h, Out) { return vantro_repeat(h, 2); },
         request(24, words({2})), ""},
        {"vantro_get_current_state", ask<VantroStateInfo, vantro_get_current_state>, request(3),
         words({2, 0x7f800001, -1, 1})},
        {"vantro_get_current_trksession_info",
         ask<VantroTrksessionInfo, vantro_get_current_trksession_info>, request(4),
         words({1, 12, 3, -1})},
        {"vantro_get_current_track_position", ask_position, request(6), words({-9})},
    };
    return calls;
}

TEST_F(Player, CallsSendTheirBytesAndTakeWholeAnswersOnly) {
    for (const SimpleCall &c : simple_calls()) {
        SCOPED_TRACE(c.name);
        std::string got;
        const bool is_command = c.record.empty();
        const std::string failed = std::string("5 ") + c.name + "() failed";
        // Commands add their own line to that of a bad handle or a failed exchange.
        const auto expect_failure = [&](VantroHandle *with, const std::string &line) {
            EXPECT_EQ(c.call(with, got), -1);
            EXPECT_EQ(take(lines), is_command ? (Lines{line, failed}) : Lines{line});
        };
        const std::string whole = words({0}) + c.record;
        for (size_t size = 0; size <= whole.size(); size++) {
            // In the last turn the answer is complete, and a refusal.
            will_answer(size < whole.size() ? whole.substr(0, size) : words({7}) + c.record);
            EXPECT_EQ(c.call(handle, got), -1) << size;
            EXPECT_EQ(take(lines), Lines{failed});
        }
        will_answer(whole + '\0');
        expect_failure(handle, std::string("3 ") +
                                   (is_command && c.sent.size() == 16 ? "msgclient_putget"
                                                                      : "msgclient_putgetv") +
                                   "() failed: Unknown error 240");
        take(requests);
        expect_failure(nullptr, "5 Invalid vantro handle");
        // Commands need an open player; for queries the service decides.
        will_answer(whole);
        char *name = std::exchange(handle->player_name, nullptr);
        if (is_command) {
            expect_failure(handle, "5 Invalid vantro handle");
        } else {
            EXPECT_EQ(c.call(handle, got), 0);
        }
        handle->player_name = name;
        EXPECT_EQ(take(requests).size(), is_command ? 0U : 1U);
        EXPECT_EQ(c.call(handle, got), 0);
        EXPECT_EQ(take(requests), Lines{c.sent});
        EXPECT_EQ(got, c.record);
        EXPECT_EQ(take(lines), Lines{});
    }
}

TEST_F(Player, ModesOutOfRangeAreNotSent) {
    for (const int mode : {2, -1}) {
        EXPECT_EQ(vantro_shuffle(handle, mode), -1);
    }
    for (const int mode : {3, -1}) {
        EXPECT_EQ(vantro_repeat(handle, mode), -1);
    }
    EXPECT_EQ(take(lines), (Lines{"5 invalid shuffle_mode: 2", "5 invalid shuffle_mode: -1",
                                  "5 invalid repeat_mode: 3", "5 invalid repeat_mode: -1"}));
    EXPECT_EQ(take(requests), Lines{});
}

TEST_F(Player, TrackIsReadAsFarAsItsLengthsAreTrue) {
    const std::string node = words({1, 2, 3, 4}) + text("id") + text("name");
    const std::string metadata = words({9, 0, 0, 0, 0}) + text("title") + std::string(24, '\0');
    const auto size = [](const std::string &bytes) { return static_cast<int32_t>(bytes.size()); };
    struct Case {
        const char *name;
        int32_t node_length, metadata_length;
        std::string data;
        int result;
        bool has_node, has_metadata;
    } const cases[] = {
        {"both", size(node), size(metadata), node + metadata, 0, true, true},
        {"no node", 0, size(metadata), metadata, 0, false, true},
        {"node of negative length", -5, size(metadata), metadata, 0, false, true},
        {"metadata of negative length", size(node), INT32_MIN, node, 0, true, false},
        {"metadata beyond the end", size(node), size(metadata) + 1, node + metadata, -1, true,
         false},
        {"node beyond the end", size(node) + 1, 0, node, -1, false, false},
        {"node cut short", size(node) - 1, size(metadata), node + metadata, -1, false, false},
        {"node of zeros, metadata beyond the end", 65536, 1, std::string(65536, '\0'), -1, true,
         false},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        will_answer(words({0, 6, -1, 2, c.node_length, c.metadata_length}) + c.data);
        VantroTrackInfo *info = nullptr;
        take(requests);
        EXPECT_EQ(vantro_get_current_track_info(handle, &info), c.result);
        EXPECT_EQ(take(requests), Lines{request(5)});
        ASSERT_NE(info, nullptr);
        EXPECT_EQ(info->index, 6);
        EXPECT_EQ(info->tsid, 0x2ffffffffU);
        EXPECT_EQ(info->media_node != nullptr, c.has_node);
        EXPECT_EQ(info->metadata != nullptr, c.has_metadata);
        EXPECT_TRUE(!c.has_metadata || std::string(info->metadata->title) == "title");
        vantro_free_track_info(info);
    }
    VantroTrackInfo *info = nullptr;
    will_answer(std::string(23, '\0'));
    EXPECT_EQ(vantro_get_current_track_info(handle, &info), -1);
    EXPECT_EQ(take(lines), Lines{"5 vantro_get_current_track_info() failed"});
    will_answer(std::string(24 + 65537, '\0'));
    EXPECT_EQ(vantro_get_current_track_info(handle, &info), -1);
    EXPECT_EQ(take(lines), Lines{"3 msgclient_putgetv() failed: Unknown error 240"});
    EXPECT_EQ(info, nullptr);
    vantro_free_track_info(info);
}

TEST(LogDeathTest, TheTwoGravestSeveritiesEndTheProcess) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(vantro::player::msglog(2, "over"), testing::ExitedWithCode(1), "");
    EXPECT_EXIT(vantro::player::msglog(1, "over"), testing::KilledBySignal(SIGABRT), "");
}

} // namespace
