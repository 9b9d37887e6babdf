#include "service/requests/user_limits.h"

#include <string>
#include <vector>

#include <sys/resource.h>

#include <gtest/gtest.h>

namespace vantro::service::requests {

namespace {

constexpr uint32_t first_user = 70000; // neither user 0 nor whoever runs the test

struct Room {
    std::vector<std::string> lines;
    uint32_t connections = 0;
    UserLimits limits{[this](const std::string &line) { lines.push_back(line); }};

    // Takes until a limit refuses, at most `most` times.
    int64_t take(Limited what, uint32_t uid, int64_t most) {
        for (int64_t taken = 0; taken < most; ++taken) {
            // Connections with one open each, or opens of one connection for each user.
            const auto connection =
                static_cast<int32_t>(what == Limited::connections ? ++connections : uid);
            const Client client{1, connection, getpid(), uid};
            const bool within = what == Limited::waiting_bytes
                                    ? limits.take_waiting(client, 1 << 20)
                                : what == Limited::waiting_requests ? limits.take_waiting(client, 1)
                                                                    : limits.take_open(client);
            if (!within) {
                return taken;
            }
        }
        return most;
    }
};

TEST(UserLimits, OfOneUserOfAllAndOfThoseWithTheReserve) {
    for (const Limited what : {Limited::connections, Limited::opens, Limited::waiting_requests,
                               Limited::waiting_bytes}) {
        SCOPED_TRACE(limit_of(what).name);
        const int64_t unit = what == Limited::waiting_bytes ? 1 << 20 : 1;
        const int64_t one = limit_of(what).of_one_user / unit;
        const int64_t all = limit_of(what).of_all_users / unit;
        Room room;
        EXPECT_EQ(room.take(what, first_user, 2 * one), one);
        EXPECT_EQ(room.take(what, first_user, 1), 0);
        ASSERT_EQ(room.lines.size(), 1u) << "once";
        const std::string who = "user " + std::to_string(first_user);
        EXPECT_NE(room.lines[0].find(who), std::string::npos) << room.lines[0];
        EXPECT_NE(room.lines[0].find(std::to_string(getpid()) + " (service_test)"),
                  std::string::npos)
            << room.lines[0];

        int64_t taken = one;
        for (uint32_t user = first_user + 1; taken < all; ++user) {
            const int64_t more = room.take(what, user, 2 * one);
            ASSERT_EQ(more, std::min(one, all - taken));
            taken += more;
        }
        EXPECT_EQ(room.take(what, first_user - 1, 1), 0) << "all together";
        for (const uint32_t reserved : {uint32_t{0}, geteuid()}) {
            EXPECT_EQ(room.take(what, reserved, 2 * one), 2 * one);
        }
    }
}

// Logged once until the user holds nothing of the service any more, as with every limit.
TEST(UserLimits, SessionsThatAPlayerRefusesAreToldOnce) {
    const std::pair<uint32_t, const char *> rows[] = {{first_user, "(12 for one user, 14 for all)"},
                                                      {0, "(16 for one user, 16 for all)"}};
    for (const auto &[uid, amounts] : rows) {
        Room room;
        const Client client{1, 1, getpid(), uid};
        for (const size_t lines : {1u, 2u}) {
            ASSERT_TRUE(room.limits.take_open(client));
            room.limits.sessions_refused(client);
            room.limits.sessions_refused(client);
            ASSERT_EQ(room.lines.size(), lines);
            EXPECT_NE(room.lines.back().find(amounts), std::string::npos) << room.lines.back();
            room.limits.give_open(client);
        }
        room.limits.sessions_refused(client); // its connection has ended by then
        EXPECT_EQ(room.lines.size(), 2u);
    }
}

// The first 48 descriptors below the limit are the service's own, the next 48 the reserve.
TEST(UserLimits, DescriptorsAreKeptBack) {
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const int lowest = dup(STDIN_FILENO);
    close(lowest);
    const struct {
        int left;
        bool own;
        bool others;
    } rows[] = {{97, false, false},
                {96, false, true},
                {49, false, true},
                {48, true, true},
                {0, true, true}};
    for (const auto &row : rows) {
        const rlimit low = {static_cast<rlim_t>(lowest + row.left), before.rlim_max};
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &low), 0);
        EXPECT_EQ(descriptors_are_short(geteuid()), row.own) << row.left;
        EXPECT_EQ(descriptors_are_short(first_user), row.others) << row.left;
    }
    setrlimit(RLIMIT_NOFILE, &before);
}

TEST(UserLimits, WhatIsGivenBackCanBeTakenAgain) {
    Room room;
    for (int round = 0; round < 3; ++round) {
        const uint32_t before = room.connections;
        const int64_t most = limit_of(Limited::connections).of_one_user;
        EXPECT_EQ(room.take(Limited::connections, first_user, 2 * most), most);
        for (int64_t each = 1; each <= most; ++each) {
            room.limits.give_open({1, static_cast<int32_t>(before + each), 1, first_user});
        }
        EXPECT_EQ(room.take(Limited::waiting_requests, first_user, 2), 2);
        room.limits.give_waiting({1, 1, 1, first_user}, 1);
        room.limits.give_waiting({1, 1, 1, first_user}, 1);
    }
}

} // namespace

} // namespace vantro::service::requests
