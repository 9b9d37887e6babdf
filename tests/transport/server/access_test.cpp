// Who may open a service in name mode: clients that have its capabilities.
#include <memory>

#include <vantro/platform/io.h>

#include "tests/support/path_device.h"
#include "tests/transport/support.h"

namespace vantro::test {
namespace {

std::mutex line_lock;
std::string last_line; // the last question to the grantor

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

} // namespace
} // namespace vantro::test
