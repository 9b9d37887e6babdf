// Who may open a service: permission bits, owner and groups in path mode, capabilities else.
#include <cstdlib>
#include <memory>

#include <unistd.h>

#include <vantro/platform/io.h>

#include "tests/transport/support.h"

namespace vantro::test {
namespace {

// The grantor device, played by a thread: it grants the capabilities "net" and "audio".
class Grantor {
  public:
    Grantor() : channel_(channel_create(CHANNEL_DISCONNECT)) {
        path_funcs_init(PATH_CONNECT_HANDLER_COUNT, &connect_, PATH_IO_HANDLER_COUNT, &io_);
        io_.handlers[PATH_IO_WRITE] = check;
        path_attr_init(&attr_, 0666, nullptr, nullptr);
        dispatch_ = path_dispatch_create(channel_, 0);
        static auto &all = *new std::vector<path_dispatch *>; // with a path they are for ever
        all.push_back(dispatch_);
        EXPECT_GE(path_attach(dispatch_, nullptr, "/dev/grantor", 0, 0, &connect_, &io_, &attr_),
                  0);
        thread_ = std::thread([] {
            path_context *context = path_context_alloc(dispatch_);
            while (path_receive(context) >= 0) {
                path_dispatch_handle(context);
            }
            path_context_free(context);
        });
    }
    ~Grantor() {
        channel_destroy(channel_);
        thread_.join();
    }

    // The line checked since the last call.
    static std::string take_line() {
        const std::lock_guard guard(lock_);
        return std::exchange(last_line_, "");
    }

  private:
    static int check(path_request *request) {
        const std::string line(static_cast<const char *>(request->data), request->length);
        {
            const std::lock_guard guard(lock_);
            last_line_ = line;
        }
        const std::string list = "," + line.substr(line.rfind(' ') + 1) + ",";
        int granted = 0;
        for (const char *name : {",net,", ",audio,"}) {
            granted += list.find(name) != std::string::npos;
        }
        return list.find(",refuse,") != std::string::npos ? -EIO : granted;
    }

    static inline path_dispatch *dispatch_;
    static inline std::mutex lock_;
    static inline std::string last_line_;
    int channel_;
    path_connect_funcs connect_ = {};
    path_io_funcs io_ = {};
    path_attr attr_ = {};
    std::thread thread_;
};

TEST(Access, Capabilities) {
    const Grantor grantor;
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
            EXPECT_EQ(Grantor::take_line(), checked && row.asked ? who + row.capabilities : "");
        }
        server.stop();
        if (server->grantor_fd != -1) {
            platform_close(server->grantor_fd);
        }
    }
}

TEST(Access, RestartedGrantor) {
    auto grantor = std::make_unique<Grantor>();
    Server server(0);
    ASSERT_TRUE(server.get());
    ASSERT_EQ(server.add("restarted", "net"), 0);
    server.start(1);
    for (int i = 0; i < 2; i++) {
        EXPECT_EQ(Client("restarted").error, 0);
        grantor.reset();
        EXPECT_EQ(Client("restarted").error, ENOENT);
        grantor = std::make_unique<Grantor>();
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
