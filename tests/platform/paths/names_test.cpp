// Names and paths: who owns one, who finds it, and who may open it.
#include <sys/stat.h>

#include <algorithm>
#include <cctype>

#include <vantro/platform/io.h>

#include "tests/platform/support.h"
#include "tests/support/path_device.h"

namespace vantro::test {
namespace {

TEST(Names, OnlyProperOnesAreLookedUp) {
    const RuntimeDirectory runtime;
    const ChannelServer server(echo);
    std::filesystem::create_symlink("default", runtime.path() + "/vantro/name/csm/test/link");
    std::filesystem::create_directory_symlink("test", runtime.path() + "/vantro/name/csm/other");
    const std::string long_part(256, 'n');
    const std::string long_name = std::string(600, 'a') + "/" + std::string(600, 'b');
    const struct {
        std::string name;
        int error;
    } cases[] = {
        {"csm/test/none", ENOENT},
        {"csm/../csm/test/default", ENOENT},
        {"csm//test/default", ENOENT},
        {"/csm/test/default", ENOENT},
        {"", ENOENT},
        {"csm/test/./default", ENOENT},
        {"csm/test/link", ENOENT},
        {"csm/other/default", ENOENT},
        {"csm/test", ENOENT},
        {"csm/test/default/more", ENOENT},
        {"csm/test/default.lock", ENOENT}, // the name's own lock lies there
        {"csm/" + long_part, ENAMETOOLONG},
        {long_name, ENAMETOOLONG},
    };
    for (const auto &wrong : cases) {
        EXPECT_EQ(global_name_open(wrong.name.c_str(), 0), -1) << wrong.name;
        EXPECT_EQ(errno, wrong.error) << wrong.name;
        if (wrong.name.find("link") == std::string::npos && wrong.name != "csm/test/none") {
            EXPECT_EQ(global_name_attach(server.dispatch, wrong.name.c_str(), 0), nullptr)
                << wrong.name;
        }
    }
    const std::string longest = "csm/" + std::string(240, 'x');
    EXPECT_NE(global_name_attach(server.dispatch, longest.c_str(), 0), nullptr) << strerror(errno);
    const int connection = global_name_open(longest.c_str(), 0);
    EXPECT_TRUE(is_served(connection));
    global_name_close(connection);
}

TEST(Names, OneHolderAtATimeAndADeadOneIsSucceeded) {
    const RuntimeDirectory runtime;
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t holder = in_child([&] {
        ChannelServer server(echo);
        [[maybe_unused]] const ssize_t n = write(ready[1], "r", 1);
        pause();
    });
    char byte;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    struct stat lock;
    ASSERT_EQ(stat((runtime.path() + "/vantro/name/csm/test/default.lock").c_str(), &lock), 0);
    EXPECT_EQ(lock.st_mode & 0777, 0600u); // others could take it, and the name with it
    const int channel = channel_create(0);
    struct path_dispatch *dispatch = path_dispatch_create(channel, 0);
    EXPECT_EQ(global_name_attach(dispatch, "csm/test/default", 0), nullptr);
    EXPECT_EQ(errno, EADDRINUSE);
    kill(holder, SIGKILL);
    exit_status(holder);
    EXPECT_NE(global_name_attach(dispatch, "csm/test/default", 0), nullptr);
    EXPECT_EQ(global_name_attach(dispatch, "csm/test/default", 0), nullptr);
    EXPECT_EQ(errno, EADDRINUSE);
    channel_destroy(channel);
    path_dispatch_destroy(dispatch);
    EXPECT_EQ(connect_to_test(), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_TRUE(std::filesystem::is_empty(runtime.path() + "/vantro/name/csm/test"));
    close(ready[0]);
    close(ready[1]);
}

// A directory that others may write is not trusted.
TEST(Names, AnUnsafeRuntimeDirectoryIsNotTrusted) {
    const RuntimeDirectory runtime;
    const ChannelServer server(echo);
    ASSERT_EQ(chmod(runtime.path().c_str(), 0777), 0);
    EXPECT_EQ(connect_to_test(), -1);
    ASSERT_EQ(chmod(runtime.path().c_str(), 0700), 0);
    const int connection = connect_to_test();
    EXPECT_TRUE(is_served(connection));
    global_name_close(connection);
}

// Folders, unused names and rings that a user's service left do not hide a system service.
TEST(Names, EachNameIsLookedUpInBothDirectories) {
    const std::string name = "csm/test/" + std::to_string(getpid());
    const int channel = channel_create(0);
    struct path_dispatch *dispatch = path_dispatch_create(channel, 0);
    unsetenv("XDG_RUNTIME_DIR");
    if (!global_name_attach(dispatch, name.c_str(), 0)) {
        path_dispatch_destroy(dispatch);
        channel_destroy(channel);
        GTEST_SKIP() << "/run/vantro: " << strerror(errno);
    }
    std::thread serving([channel] {
        char buffer[16];
        const struct iovec part = {buffer, sizeof buffer};
        for (int id = 0; id >= 0; id = ipc_receive(channel, &part, 1, nullptr)) {
            if (id > 0) {
                ipc_reply(id, 4, buffer, 4);
            }
        }
    });
    const RuntimeDirectory runtime;
    const auto is_found = [&name] {
        const int connection = global_name_open(name.c_str(), 0);
        if (connection < 0) {
            return false;
        }
        const bool served = is_served(connection);
        global_name_close(connection);
        return served;
    };
    EXPECT_TRUE(is_found()) << "the user has no directory";
    const int own = channel_create(0);
    struct path_dispatch *const own_dispatch = path_dispatch_create(own, 0);
    ASSERT_NE(global_name_attach(own_dispatch, "csm/test/other", 0), nullptr);
    EXPECT_TRUE(is_found()) << "another name of the user's";
    const pid_t dead = in_child([&] {
        struct path_dispatch *const copy = path_dispatch_create(channel_create(0), 0);
        _exit(global_name_attach(copy, name.c_str(), 0) ? 7 : 1);
    });
    EXPECT_EQ(WEXITSTATUS(exit_status(dead)), 7);
    EXPECT_TRUE(std::filesystem::exists(runtime.path() + "/vantro/name/" + name));
    EXPECT_TRUE(is_found()) << "a name that nobody holds any more";
    channel_destroy(channel);
    serving.join();
    EXPECT_FALSE(is_found());
    EXPECT_EQ(errno, ECONNREFUSED) << "the user's own comes first";
    channel_destroy(own);
    path_dispatch_destroy(own_dispatch);
    path_dispatch_destroy(dispatch);
}

// The answer to a write: the number of capital letters.
int count_capitals(const std::string &text) {
    const auto capitals =
        std::count_if(text.begin(), text.end(), [](unsigned char c) { return isupper(c) != 0; });
    return capitals > 0 ? static_cast<int>(capitals) : -EBADMSG;
}

TEST(Paths, AnswerReadsAndWritesByTheirHandlers) {
    const RuntimeDirectory runtime;
    const PathDevice device(0666, count_capitals);
    const int descriptor = platform_open("/dev/grantor", O_RDWR);
    ASSERT_GE(descriptor, 0) << strerror(errno);
    EXPECT_EQ(platform_write(descriptor, "aBcDe", 5), 2);
    EXPECT_EQ(platform_write(descriptor, "abc", 3), -1);
    EXPECT_EQ(errno, EBADMSG);
    char buffer[8];
    EXPECT_EQ(platform_read(descriptor, buffer, sizeof buffer), -1);
    EXPECT_EQ(errno, ENOSYS);
    EXPECT_EQ(ipc_send_simple(descriptor, "unknown message", 15, nullptr, 0), -1);
    EXPECT_EQ(errno, ENOSYS);
    EXPECT_EQ(platform_close(descriptor), 0);
    EXPECT_EQ(platform_write(descriptor, "A", 1), -1);
    EXPECT_EQ(errno, EBADF);
    while (PathDevice::closed == 0) {
        std::this_thread::yield();
    }

    const int read_only = platform_open("/dev/grantor", O_RDONLY);
    EXPECT_EQ(platform_write(read_only, "A", 1), -1);
    EXPECT_EQ(errno, EBADF);
    platform_close(read_only);
    EXPECT_EQ(platform_open("/sys/csm/none/default", O_RDWR), -1);
    EXPECT_EQ(errno, ENOENT);
    const int host_file = platform_open("/dev/null", O_RDWR);
    EXPECT_EQ(platform_write(host_file, "A", 1), 1);
    EXPECT_EQ(platform_close(host_file), 0);
}

// A descriptor that a child opens must not be taken for a connection of its parent that the child
// has not closed yet.
TEST(Paths, AChildKeepsTheNumberOfAConnectionUntilItClosesIt) {
    const RuntimeDirectory runtime;
    const PathDevice device(0666, count_capitals);
    const int descriptor = platform_open("/dev/grantor", O_RDWR);
    const pid_t child = in_child([&] {
        const auto refused = [](ssize_t result) { return result == -1 && errno == EBADF; };
        const int before = platform_open("/dev/null", O_RDWR);
        if (before == descriptor || platform_write(before, "A", 1) != 1 ||
            !refused(platform_write(descriptor, "A", 1)) || !refused(platform_close(descriptor))) {
            _exit(1);
        }
        int after = -1;
        do {
            after = platform_open("/dev/null", O_RDWR);
        } while (after >= 0 && after < descriptor);
        _exit(after == descriptor && platform_write(after, "A", 1) == 1 ? 0 : 2);
    });
    EXPECT_EQ(exit_status(child), 0);
    EXPECT_EQ(platform_write(descriptor, "A", 1), 1);
    platform_close(descriptor);
}

TEST(Paths, PermissionBitsDecide) {
    struct path_attr attr;
    const struct ipc_credentials someone = {1, 1000, 100, 2, {7, 8}};
    const struct {
        uint32_t mode, uid, gid, mask;
        int expected;
    } cases[] = {
        {0600, 1000, 1, 0600, 0},        {0400, 1000, 1, 0600, EACCES},
        {0066, 1000, 100, 0600, EACCES}, // the owner's bits count, not the others'
        {0060, 1, 100, 0600, 0},         {0040, 1, 100, 0400, 0},
        {0060, 1, 8, 0600, 0},           {0606, 1, 8, 0600, EACCES},
        {0006, 1, 9, 0600, 0},           {0660, 1, 9, 0600, EACCES},
    };
    for (const auto &c : cases) {
        path_attr_init(&attr, c.mode, nullptr, nullptr);
        attr.uid = c.uid;
        attr.gid = c.gid;
        EXPECT_EQ(path_check_access(nullptr, &attr, c.mask, &someone), c.expected)
            << std::oct << c.mode << " " << c.uid << " " << c.gid;
    }
    const struct ipc_credentials root = {};
    EXPECT_EQ(path_check_access(nullptr, &attr, 0600, &root), 0);
    EXPECT_EQ(path_check_access(nullptr, &attr, 0600, nullptr), EACCES);
}

} // namespace
} // namespace vantro::test
