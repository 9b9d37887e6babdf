// Making servers, attaching services, and the slot table behind both.
#include "tests/transport/support.h"

namespace vantro::test {
namespace {

TEST(Setup, Create) {
    const struct {
        int32_t max_msg_size, flags, expected_size;
        uint32_t expected_flags;
    } rows[] = {{0, 1, 1024, 1}, {-5, 2, 1024, 3}, {1023, 3, 1024, 3}, {4096, 0x41, 4096, 0x41}};
    for (const auto &row : rows) {
        const Server server(row.flags, row.max_msg_size, 7);
        EXPECT_EQ(server->max_msg_size, row.expected_size);
        EXPECT_EQ(server->flags, row.expected_flags);
        EXPECT_EQ(server->grantor_fd, -1);
    }
    errno = 0;
    EXPECT_EQ(msgserver_create(1024, 1, 0), nullptr); // no process serves the grantor device here
    EXPECT_EQ(errno, EPERM);
}

TEST(Setup, AddAndFail) {
    const std::string n32(32, 'n');
    const struct {
        const char *name;
        int32_t recv_size;
        int index, error, raised;
    } rows[] = {{"x", 5000, 0, 0, 5000},
                {"x", 9000, -1, EADDRINUSE, 9000}, // raised also when the attach fails
                {"..", 1, -1, ENOENT, 9000},
                {"", 1, -1, ENOENT, 9000},
                {n32.c_str(), 1, -1, ENAMETOOLONG, 9000}, // no client can ask for it
                {nullptr, 1, -1, EINVAL, 9000},
                {"y", 2000, 1, 0, 9000}}; // the index of those that failed
    for (const int mode : {MSGSERVER_FLAG_NOCHECK, MSGSERVER_FLAG_PATH}) {
        const Server server(mode);
        for (const auto &row : rows) {
            const auto handler = [](MsgOsb *, MsgContext *, MsgService *) { return 0; };
            EXPECT_EQ(msgserver_add(server.get(), row.name, nullptr, nullptr, row.recv_size,
                                    handler, nullptr, nullptr),
                      row.index);
            EXPECT_TRUE(row.index >= 0 || errno == row.error) << errno;
            EXPECT_EQ(server->recv_size, row.raised);
        }
        EXPECT_STREQ(server.service(1)->options, "");
        EXPECT_EQ(server.service(1)->attr != nullptr, mode == MSGSERVER_FLAG_PATH);
    }
}

TEST(Setup, PathOptions) {
    const uint32_t me = geteuid(), mine = getegid();
    const struct {
        const char *options;
        uint32_t permissions, uid, gid;
    } rows[] = {{nullptr, 0666, me, mine},
                {"perms=0777", 0666, me, mine},
                {"perms=0640,uid=1000,gid=20", 0640, 1000, 20},
                {"gid=4294967294,perms=600", 0600, me, 4294967294},
                {"uid=7,perms=junk", 0, 7, mine}};
    const Server server(MSGSERVER_FLAG_PATH);
    for (int i = 0; i < static_cast<int>(std::size(rows)); i++) {
        ASSERT_EQ(server.add("options", rows[i].options, std::to_string(i).c_str()), i);
        const path_attr &attr = *server.service(i)->attr;
        EXPECT_EQ(attr.mode, 0x5000 | rows[i].permissions);
        EXPECT_EQ(attr.uid, rows[i].uid);
        EXPECT_EQ(attr.gid, rows[i].gid);
        EXPECT_EQ(attr.size, 1024u);
        EXPECT_EQ(attr.serial, static_cast<uint64_t>(i) + 1);
        EXPECT_EQ(attr.mount->configuration, 0x10u);
    }
}

} // namespace
} // namespace vantro::test
