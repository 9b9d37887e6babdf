#include "service/playback/player.h"

#include <cerrno>
#include <set>
#include <thread>

#include <gtest/gtest.h>

#include "tests/support/memory_catalogue.h"

namespace vantro::service::playback {

namespace {

struct Room {
    test::MemoryCatalogue catalogue{{1000, 2000, 3000, 4000}};
    SessionIds ids{catalogue};
    Player player{"main", catalogue, ids, [] { return std::chrono::nanoseconds(1); }, 7};
    Player other{"den", catalogue, ids, [] { return std::chrono::nanoseconds(1); }, 7};
    uint64_t tsid = 77;

    int32_t state() { return player.snapshot().modes.state; }
    uint64_t current() {
        const SessionPtr session = player.snapshot().session;
        return session ? session->tsid : 0;
    }
};

TEST(Player, RefusesSessionsThatCannotBe) {
    const struct {
        int32_t source;
        const char *node;
        int32_t index;
        int32_t start;
        int result;
    } rows[] = {
        {1, "nowhere", 0, 0, ENOENT},      {2, "few", 0, 0, ENOENT},
        {1, "none", 0, 0, ENODATA},        {1, "few", 3, 0, ERANGE},
        {1, "few", -1, 0, ERANGE},         {1, "few", INT_MIN, 0, ERANGE},
        {1, "few", 0, 5, ERANGE},          {1, "few", 0, -1, ERANGE},
        {1, "few\n\nsong1", 0, 0, EINVAL}, {1, "few\nnowhere", 0, 0, ENOENT},
        {0, "1:few\nsong1", 0, 0, EINVAL}, {0, "", 0, 0, EINVAL},
        {0, "-1:few", 0, 0, EINVAL},       {0, "2:few", 0, 0, ENOENT},
        {1, "few", 1, 2, ERANGE},          {1, "few", 1, 3, ERANGE},
        {1, "few", 3, 4, ERANGE},
    };
    Room room;
    for (const auto &row : rows) {
        EXPECT_EQ(room.player.create(row.source, row.node, row.index, row.start, room.tsid),
                  row.result)
            << row.node << row.index;
        EXPECT_EQ(room.state(), VANTRO_STATE_IDLE);
    }
    room.catalogue.broken = true;
    EXPECT_EQ(room.player.play(), EIO) << "not that there are no songs";
    room.catalogue.broken = false;
    room.catalogue.ids_run_out = true;
    EXPECT_EQ(room.player.create(1, "few", 0, 0, room.tsid), EIO);
    EXPECT_EQ(room.player.play(), EIO);
    room.catalogue.list.clear();
    EXPECT_EQ(room.player.play(), ENODATA);
}

TEST(Player, KeepsSessionsUntilTheyAreDestroyed) {
    Room room;
    std::set<uint64_t> seen;
    for (int i = 0; i < VANTRO_TRKSESSIONS_MAX; ++i) {
        ASSERT_EQ(room.player.create(1, i % 2 ? "few" : "", 2, i % 2, room.tsid), 0);
        EXPECT_TRUE(seen.insert(room.tsid).second);
        EXPECT_EQ(room.current(), room.tsid);
        EXPECT_EQ(room.state(), i % 2 ? VANTRO_STATE_PLAYING : VANTRO_STATE_PAUSED);
        EXPECT_EQ(room.player.snapshot().index, 2);
        EXPECT_EQ(room.player.snapshot().session->length(), i % 2 ? 3 : 4);
    }
    const uint64_t newest = room.tsid;
    const uint64_t last = *room.ids.take();
    EXPECT_EQ(room.player.create(1, "few", 0, 1, room.tsid), ENOSPC);
    EXPECT_EQ(*room.ids.take(), last + 1) << "a refusal uses up no id";
    EXPECT_EQ(room.player.play(), 0) << "there is one to play";
    EXPECT_EQ(room.other.session(newest), nullptr) << "a player's own";
    EXPECT_EQ(room.other.destroy(newest), ENOENT);

    EXPECT_EQ(room.player.destroy(*seen.begin()), 0);
    EXPECT_EQ(room.player.destroy(*seen.begin()), ENOENT);
    EXPECT_EQ(room.player.session(*seen.begin()), nullptr);
    EXPECT_EQ(room.current(), newest);
    EXPECT_EQ(room.state(), VANTRO_STATE_PLAYING);
    EXPECT_EQ(room.player.destroy(newest), 0);
    EXPECT_EQ(room.current(), 0u);
    EXPECT_EQ(room.state(), VANTRO_STATE_IDLE);

    uint64_t all = 0;
    for (int i = 0; i < 3; ++i) { // one at most, besides those that clients made
        ASSERT_EQ(room.player.play(), 0);
        EXPECT_EQ(room.player.session(all), nullptr);
        all = room.current();
        EXPECT_EQ(room.player.session(all)->type, VANTRO_TRKSESSION_ALL);
        EXPECT_TRUE(seen.insert(all).second) << "never given again";
        if (i < 2) {
            EXPECT_EQ(room.player.create(1, "few", 0, 1, room.tsid), 0);
            EXPECT_EQ(room.player.destroy(room.tsid), 0);
        }
    }
    EXPECT_EQ(room.player.create(1, "few", 0, 1, room.tsid), 0);
    EXPECT_EQ(room.player.create(1, "few", 0, 1, room.tsid), 0);
    EXPECT_EQ(room.player.create(1, "few", 0, 1, room.tsid), ENOSPC);
    for (uint64_t high = 1ull << 32; high != 0; high <<= 8) {
        EXPECT_EQ(room.player.destroy(room.tsid | high), ENOENT);
    }
}

TEST(Player, SessionsOfMakersThatAreGoneMakeRoomOldestFirst) {
    Room room;
    uint64_t made[VANTRO_TRKSESSIONS_MAX] = {};
    for (int i = 0; i < VANTRO_TRKSESSIONS_MAX; ++i) {
        const Maker maker{static_cast<uint64_t>(i % 2 + 1), 0, false};
        ASSERT_EQ(room.player.create(1, "few", 0, 0, made[i], maker), 0);
    }
    EXPECT_EQ(room.player.create(1, "few", 0, 0, room.tsid, {3, 0, false}), ENOSPC);
    room.player.maker_gone(2);
    EXPECT_EQ(room.player.create(1, "nowhere", 0, 0, room.tsid, {3, 0, false}), ENOENT);
    for (int i = 1; i < VANTRO_TRKSESSIONS_MAX; i += 2) { // the current one included
        EXPECT_NE(room.player.session(made[i]), nullptr);
        ASSERT_EQ(room.player.create(1, "few", 0, 0, room.tsid, {3, 0, false}), 0);
        EXPECT_EQ(room.player.session(made[i]), nullptr);
        EXPECT_NE(room.player.session(made[i - 1]), nullptr) << "its maker is there";
        EXPECT_EQ(room.current(), room.tsid);
    }
    EXPECT_EQ(room.player.create(1, "few", 0, 0, room.tsid, {3, 0, false}), ENOSPC);
}

TEST(Player, KeepsSessionsInReserve) {
    Room room;
    const auto make = [&](uint32_t uid, bool limited) {
        int made = 0;
        while (room.player.create(1, "few", 0, 0, room.tsid, {1, uid, limited}) == 0) {
            ++made;
        }
        return made;
    };
    EXPECT_EQ(make(1000, true), sessions_of_one_user);
    EXPECT_EQ(make(1001, true), sessions_of_all_users - sessions_of_one_user);
    EXPECT_EQ(make(0, false), VANTRO_TRKSESSIONS_MAX - sessions_of_all_users);
}

// The current track goes on while songs are put after it or after all, or removed.
TEST(Player, ExchangesTheSessionUnderWhatPlays) {
    const struct {
        const char *what;
        int32_t source;
        const char *nodes;
        int32_t start;
        int32_t index;
        const char *songs;
        int32_t at;
        int32_t position;
    } rows[] = {
        {"after all", 1, "song4", VANTRO_TRKSESSION_APPEND, 0, "1234", 1, 500},
        {"after the current one", 0, "1:song4\n1:few\n", VANTRO_TRKSESSION_INSERT, 0, "12412334", 1,
         500},
        {"one before it is taken away", 1, "song2\nsong3", VANTRO_TRKSESSION_KEEP, 0, "23", 0, 500},
        {"itself is taken away", 1, "song1\nsong3", VANTRO_TRKSESSION_KEEP, 1, "13", 1, 0},
        {"a second time", 1, "", VANTRO_TRKSESSION_KEEP, 2, "1234", 2, 0},
    };
    std::chrono::milliseconds now{1};
    test::MemoryCatalogue catalogue({1000, 2000, 3000, 4000});
    SessionIds ids(catalogue);
    Player player(
        "main", catalogue, ids, [&now] { return now; }, 7);
    const Maker maker{1, 1000, true};
    uint64_t tsid = 0;
    ASSERT_EQ(player.create(1, "few", 0, VANTRO_TRKSESSION_APPEND, tsid, maker), 0);
    EXPECT_EQ(player.snapshot().modes.state, VANTRO_STATE_PAUSED)
        << "there was nothing to go on with";
    ASSERT_EQ(player.create(1, "few", 1, VANTRO_TRKSESSION_PLAY, tsid, maker), 0);
    now += std::chrono::milliseconds(500);
    for (const auto &row : rows) {
        const uint64_t before = tsid;
        ASSERT_EQ(player.create(row.source, row.nodes, row.index, row.start, tsid, maker), 0);
        const Engine::Snapshot found = player.snapshot();
        std::string songs;
        for (const catalogue::QueuedSong &song : found.session->songs) {
            songs += std::to_string(song.id);
        }
        EXPECT_EQ(songs, row.songs) << row.what;
        EXPECT_EQ(found.index, row.at) << row.what;
        EXPECT_EQ(found.position_ms, row.position) << row.what;
        EXPECT_EQ(found.session->tsid, tsid);
        EXPECT_EQ(found.modes.state, VANTRO_STATE_PLAYING);
        EXPECT_EQ(player.session(before), nullptr) << row.what;
    }
    for (int i = 0; i < 2 * VANTRO_TRKSESSIONS_MAX; ++i) { // each takes the place of the one before
        ASSERT_EQ(player.create(1, "song1", 0, VANTRO_TRKSESSION_APPEND, tsid, maker), 0);
    }
}

// A line of two bytes can name every song, and a request has room for a million lines.
TEST(Player, RefusesMoreSongsThanASessionMayHave) {
    Room room;
    std::string lines;
    for (int i = 0; i < VANTRO_TRKSESSION_SONGS_MAX / 4; ++i) {
        lines += "1:\n";
    }
    EXPECT_EQ(room.player.create(0, lines + "1:song1", 0, 0, room.tsid), EMSGSIZE);
    EXPECT_EQ(room.current(), 0u);
    ASSERT_EQ(room.player.create(0, lines, 0, 0, room.tsid), 0);
    const uint64_t full = room.current();
    EXPECT_EQ(room.player.create(1, "song1", 0, VANTRO_TRKSESSION_APPEND, room.tsid), EMSGSIZE);
    EXPECT_EQ(room.player.create(1, "song1", 0, VANTRO_TRKSESSION_INSERT, room.tsid), EMSGSIZE);
    EXPECT_EQ(room.current(), full);
    EXPECT_EQ(room.player.create(1, "song1", 0, VANTRO_TRKSESSION_KEEP, room.tsid), 0);
    EXPECT_EQ(room.player.session(full), nullptr);
}

// Every song comes once, songs put after the current one come next, and going back takes the same
// way.
TEST(Player, ExchangesAShuffledSession) {
    Room room;
    ASSERT_EQ(room.player.create(1, "", 0, VANTRO_TRKSESSION_PLAY, room.tsid), 0);
    ASSERT_EQ(room.player.set_shuffle(VANTRO_SHUFFLE_ON), 0);
    ASSERT_EQ(room.player.next(), 0);
    const int32_t second = room.player.snapshot().index;
    ASSERT_EQ(room.player.create(1, "few", 0, VANTRO_TRKSESSION_INSERT, room.tsid), 0);
    ASSERT_EQ(room.player.create(1, "few", 0, VANTRO_TRKSESSION_APPEND, room.tsid), 0);
    std::set<int32_t> seen = {0, second};
    EXPECT_EQ(room.player.snapshot().index, second);
    for (int i = 2; i < 10; ++i) {
        ASSERT_EQ(room.player.next(), 0);
        const int32_t index = room.player.snapshot().index;
        EXPECT_TRUE(seen.insert(index).second) << index;
        if (i < 5) {
            EXPECT_EQ(index, second + i - 1);
        }
    }
    for (int i = 0; i < 9; ++i) {
        ASSERT_EQ(room.player.previous(), 0);
    }
    EXPECT_EQ(room.player.snapshot().index, 0);
}

} // namespace

} // namespace vantro::service::playback
