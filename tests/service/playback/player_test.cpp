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
        {1, "nowhere", 0, 0, ENOENT}, {2, "few", 0, 0, ENOENT},  {1, "none", 0, 0, ENODATA},
        {1, "few", 3, 0, ERANGE},     {1, "few", -1, 0, ERANGE}, {1, "few", INT_MIN, 0, ERANGE},
        {1, "few", 0, 2, ERANGE},     {1, "few", 0, -1, ERANGE},
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
    const uint64_t last = room.ids.take();
    EXPECT_EQ(room.player.create(1, "few", 0, 1, room.tsid), ENOSPC);
    EXPECT_EQ(room.ids.take(), last + 1) << "a refusal uses up no id";
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
    for (int i = 0; i < 3; ++i) { // one at most, and beside those that clients made
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

} // namespace

} // namespace vantro::service::playback
