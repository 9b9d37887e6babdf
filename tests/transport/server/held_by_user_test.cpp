// What is held for one user, with any number of opens, and the reserve of user 0.
#include <sched.h>
#include <sys/mount.h>

#include <vantro/platform/log.h>

#include "tests/transport/support.h"

namespace vantro::test {
namespace {

// Has answers of 16 MiB held, one for each open, and fetches only the first.
int hold(uid_t user) {
    constexpr int32_t wanted[] = {16 << 20, 0};
    std::string answer(16 << 20, '\0');
    uint32_t length = 0;
    int held = 0;
    for (int i = 0; i < 12 && setuid(user) == 0; ++i) {
        MsgClient *client = msgclient_open("s", nullptr, ECHO);
        held += msgclient_putget(client, wanted, sizeof wanted, nullptr, 0, nullptr, FILL) ==
                MSG_STATUS_QUEUED;
        if (i == 0) {
            msgclient_get(client, 0, answer.data(), wanted[0], &length, 0);
        }
    }
    std::printf("%d, %zu\n", held, answer.find_first_not_of('f'));
    std::fflush(stdout);
    return pause();
}

TEST(HeldByUser, OneUserHasAShareAndLeavesOthersTheirs) {
    // In a /run of its own, since a user does not trust another user's $XDG_RUNTIME_DIR.
    if (geteuid() != 0 || unshare(CLONE_NEWNS) != 0 ||
        mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("none", "/run", "tmpfs", 0, "mode=755") != 0) {
        GTEST_SKIP() << "users cannot be made here: what is held by user was NOT tried";
    }
    const std::string before = getenv("XDG_RUNTIME_DIR");
    unsetenv("XDG_RUNTIME_DIR");
    static std::vector<std::string> lines;
    system_log_set_sink([](uint32_t, int, const char *line, void *) { lines.emplace_back(line); },
                        nullptr);
    Server server(MSGSERVER_FLAG_PATH, 4096, 100);
    ASSERT_EQ(server.add("s", "perms=666"), 0);
    server.start(3);
    const std::string all = std::to_string(std::string::npos);
    for (int round = 0; round < 2; ++round) {
        while (server.records() > 0) { // until the processes' ends are known
            usleep(1000);
        }
        Process one([] { return hold(70001); });
        EXPECT_EQ(one.line(), "9, " + all) << "128 MiB, and what was fetched";
        Process same([] { return hold(70001); });
        EXPECT_EQ(same.line().substr(0, 2), "0,");
        Process other([] { return hold(70002); });
        EXPECT_EQ(other.line(), "9, " + all);
        Process root([] { return hold(0); });
        EXPECT_EQ(root.line(), "12, " + all);
        ASSERT_EQ(lines.size(), 2u * static_cast<unsigned>(round + 1)) << "once a user";
        EXPECT_NE(lines.back().find("user 70002"), std::string::npos) << lines.back();
    }
    system_log_set_sink(nullptr, nullptr);
    setenv("XDG_RUNTIME_DIR", before.c_str(), 1);
    umount2("/run", MNT_DETACH);
}

} // namespace
} // namespace vantro::test
