// Who may open a service: permission bits, owner and groups in path mode, capabilities else.
#include <cstdlib>
#include <memory>

#include <unistd.h>

#include <vantro/platform/io.h>

#include "tests/support/path_device.h"
#include "tests/transport/support.h"

namespace vantro::test {
namespace {

std::mutex line_lock;
std::string last_line; // that the grantor was asked

// Grants the capabilities "net" and "audio".
int grant(const std::string &line) {
    const std::lock_guard guard(line_lock);
    last_line = line;
    const std::string list = "," + line.substr(line.rfind(' ') + 1) + ",";
    int granted = 0;
    for (const char *name : {",net,", ",audio,"}) {
        granted += list.find(name) != std::string::npos;
    }
    return list.find(",refuse,") != std::string::npos ? -EIO : granted;
}

TEST(Access, Capabilities) {
    const PathDevice grantor(0666, grant);
    const std::string who =
        "chkcap " + std::to_string(geteuid()) + "," + std::to_string(getegid()) + ",";
    const struct {
        const char *name, *capabilities;
        int error;
        bool asked;
    } rows[] = {{"none", "", 0, false},
                {"one", "net", 0, true},
                {"two", "net,audio", 0, true},
                {"missing", "net,video", ENOENT, true},
                {"trailing", "net,", ENOENT, true},
                {"error", "refuse", ENOENT, true}};
    for (const int flags : {0, int(MSGSERVER_FLAG_NOCHECK)}) {
        Server server(flags);
        ASSERT_TRUE(server.get());
        for (const auto &row : rows) {
            ASSERT_GE(server.add(row.name, row.capabilities), 0);
        }
        server.start(2);
        for (const auto &row : rows) {
            const bool checked = flags == 0;
            EXPECT_EQ(Client(row.name).error, checked ? row.error : 0) << row.name;
            const std::lock_guard guard(line_lock);
            EXPECT_EQ(std::exchange(last_line, ""),
                      checked && row.asked ? who + row.capabilities : "");
        }
        server.stop();
        if (server->grantor_fd != -1) {
            platform_close(server->grantor_fd);
        }
    }
}

TEST(Access, RestartedGrantor) {
    auto grantor = std::make_unique<PathDevice>(0666, grant);
    Server server(0);
    ASSERT_TRUE(server.get());
    ASSERT_EQ(server.add("restarted", "net"), 0);
    server.start(1);
    for (int i = 0; i < 2; i++) {
        EXPECT_EQ(Client("restarted").error, 0);
        grantor.reset();
        EXPECT_EQ(Client("restarted").error, ENOENT);
        grantor = std::make_unique<PathDevice>(0666, grant);
        EXPECT_EQ(Client("restarted").error, 0);
    }
    server.stop();
    platform_close(server->grantor_fd);
}

TEST(Access, PathPermissions) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can be somebody else: permission bits were NOT tried";
    }
    Server server(MSGSERVER_FLAG_PATH);
    const struct {
        const char *name, *options;
        int error;
    } rows[] = {{"all", nullptr, 0},
                {"root", "perms=0600,uid=0", EACCES},
                {"owner", "perms=0600,uid=1234", 0},
                {"readonly", "perms=0444", EACCES},
                {"twelfth", "perms=0060,uid=0,gid=5012", 0},
                {"stranger", "perms=0660,uid=0,gid=5013", EACCES}};
    for (const auto &row : rows) {
        ASSERT_GE(server.add(row.name, row.options), 0);
    }
    server.start(2);
    // The runtime directory counts for its owner only.
    const char *directory = getenv("XDG_RUNTIME_DIR");
    ASSERT_EQ(chown(directory, 1234, 4321), 0);
    for (const auto &row : rows) {
        Peer peer({"try", row.name, "all", "1234", "4321", "5001", "5002", "5003", "5004", "5005",
                   "5006", "5007", "5008", "5009", "5010", "5011", "5012"});
        // The path's own refusal leads to the global name, which is not there.
        const int seen = row.error == EACCES ? ENOENT : row.error;
        EXPECT_EQ(peer.line(), "open " + std::to_string(seen)) << row.name;
        // A path that all may open is no way round the bits of another.
        EXPECT_EQ(peer.line().substr(0, 2), row.error ? error(row.error).substr(0, 2) : "0 ");
    }
    ASSERT_EQ(chown(directory, 0, 0), 0);
    EXPECT_EQ(Client("root").error, 0);
}

} // namespace
} // namespace vantro::test
