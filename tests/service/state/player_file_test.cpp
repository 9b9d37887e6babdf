// The files in which a player is saved: what was written is read back, and anything else is
// refused.
#include <numeric>

#include <gtest/gtest.h>

#include "service/state/player_file.h"

namespace vantro::service::state {

namespace {

KeptPlayer a_player() {
    KeptPlayer player;
    player.edition = 77;
    player.saved.modes = {VANTRO_STATE_PAUSED, 1.5f, VANTRO_REPEAT_ALL, VANTRO_SHUFFLE_ON};
    player.saved.volume = {40, 1};
    player.saved.session = std::make_shared<playback::TrackSession>(
        5, 2, std::vector<catalogue::QueuedSong>{{-3, 1, 1000}, {1LL << 60, 2, 0}, {9, 1, 7}});
    player.saved.order = {2, 0, 1};
    player.saved.place = 1;
    player.saved.position_us = 999'999;
    return player;
}

// The text with the first match replaced, and with the checksum of the new text.
std::string changed(std::string text, const std::string &pattern, const std::string &by) {
    text.replace(text.find(pattern), pattern.size(), by);
    text.resize(text.rfind("sum "));
    uint64_t sum = 0xCBF29CE484222325;
    for (const unsigned char c : text) {
        sum = (sum ^ c) * 0x100000001B3;
    }
    char line[32];
    std::snprintf(line, sizeof line, "sum %016llx\n", static_cast<unsigned long long>(sum));
    return text + line;
}

TEST(PlayerFile, WhatWasWrittenComesBack) {
    KeptPlayer player = a_player();
    const std::string text = write_session(player);
    std::optional<KeptPlayer> back = read_session(text);
    ASSERT_TRUE(back);
    EXPECT_EQ(write_session(*back), text);
    player.saved.place = 2;
    player.saved.position_us = 0;
    player.saved.modes.state = VANTRO_STATE_STOPPED;
    EXPECT_TRUE(read_position(write_position(player), *back));
    EXPECT_EQ(write_session(*back), write_session(player));
    player.edition = 78; // another session's: it does not apply to this one
    player.saved.place = 0;
    EXPECT_TRUE(read_position(write_position(player), *back));
    EXPECT_EQ(back->saved.place, 2);
    KeptPlayer idle;
    idle.saved.volume.level = 3;
    ASSERT_TRUE(read_session(write_session(idle)));
    EXPECT_EQ(read_session(write_session(idle))->saved.volume.level, 3);
}

TEST(PlayerFile, TheLongestSessionFits) {
    KeptPlayer player;
    const catalogue::QueuedSong longest = {INT64_MIN, INT32_MAX, INT32_MAX};
    player.saved.session = std::make_shared<playback::TrackSession>(
        INT32_MAX, 2, std::vector<catalogue::QueuedSong>(VANTRO_TRKSESSION_SONGS_MAX, longest));
    player.saved.order.resize(VANTRO_TRKSESSION_SONGS_MAX);
    std::iota(player.saved.order.rbegin(), player.saved.order.rend(), 0);
    player.saved.modes = {VANTRO_STATE_PAUSED, 1.0f, VANTRO_REPEAT_OFF, VANTRO_SHUFFLE_ON};
    const std::string text = write_session(player);
    EXPECT_LE(text.size(), session_bytes_max);
    EXPECT_TRUE(read_session(text));
}

TEST(PlayerFile, TheLeastAndTheMost) {
    playback::Engine engine([] { return std::chrono::nanoseconds(1); }, 7, true);
    engine.load(a_player().saved.session, 0, false);
    ASSERT_EQ(engine.set_rate(std::numeric_limits<float>::denorm_min()), 0);
    const uint64_t cue = engine.wanted().now.number;
    engine.started(cue, 0);
    engine.reached(cue, 5'000'000); // the file is longer than the catalogue says
    EXPECT_TRUE(read_session(write_session({1, engine.saved()})));
}

TEST(PlayerFile, NothingElseDoes) {
    const std::string session = write_session(a_player()), position = write_position(a_player());
    for (const std::string *text : {&session, &position}) {
        for (size_t at = 0; at < text->size(); ++at) {
            std::string flipped = *text;
            flipped[at] = static_cast<char>(flipped[at] ^ 1);
            for (const std::string &broken : {text->substr(0, at), flipped}) {
                KeptPlayer player = a_player();
                EXPECT_FALSE(read_session(broken));
                EXPECT_FALSE(read_position(broken, player));
                EXPECT_EQ(write_session(player), session) << "it has changed";
            }
        }
    }
    const struct {
        const char *pattern;
        std::vector<const char *> by;
    } rows[] = {
        {"session 1", {"session 2"}},
        {"place 1 999999", {"place 3 0", "place -1 0", "place 1 -1", "place 1 1000001"}},
        {"modes 3", {"modes 1", "modes 5"}},
        {"1.5 1 1", {"0 1 1", "nan 1 1", "16.5 1 1", "1.5 3 1", "1.5 1 0"}},
        {"volume 40", {"volume 101", "volume -1"}},
        {"songs 3 5 2", {"songs 4 5 2", "songs 2 5 2", "songs 99999999 5 2", "songs 3 0 2"}},
        {"5 2 3\n", {"5 2 2\n", "5 9 3\n"}},
        {" 1000 2\n", {" 1000 3\n", " 1000 0\n"}},
        {" -3 1 1000", {" -3 0 1000", " x 1 1000", " -3 1 -1"}},
        {"sum", {"more\nsum"}},
    };
    ASSERT_TRUE(read_session(changed(session, "place 1", "place 1")));
    for (const auto &[pattern, all] : rows) {
        for (const char *by : all) {
            EXPECT_FALSE(read_session(changed(session, pattern, by))) << by;
        }
    }
    EXPECT_FALSE(read_session(changed(write_session({}), "place 0", "place 1")));
}

} // namespace

} // namespace vantro::service::state
