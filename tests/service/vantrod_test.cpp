// The program: its options, its start and its end.
#include <cerrno>
#include <csignal>
#include <fstream>

#include <poll.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/xattr.h>

#include <fmt/format.h>

#include "tests/service/vantrod.h"

namespace vantro::service {

namespace {

TEST_F(Serving, StandsAloneAndEndsWhenTold) {
    const Client client;
    for (const int signal : {SIGTERM, SIGINT}) {
        test::Process second(std::vector<std::string>{VANTROD});
        EXPECT_EQ(second.line(), "vantrod: cannot attach the service \"vantro.sys\", instance "
                                 "\"default\": another vantrod is running");
        EXPECT_EQ(second.wait(), 1);
        service->kill(signal);
        EXPECT_EQ(service->wait(), 0);
        EXPECT_EQ(told(), "") << "two lines, and no more";
        uint32_t length = 0;
        EXPECT_EQ(msgclient_putget(client.client, state.data(), 16, nullptr, 0, &length, 0),
                  ECONNRESET);
        start({});
        ASSERT_EQ(told(), "vantrod: ready (0 tracks, players: main)");
        ASSERT_EQ(told(), "vantrod: scanned (0 tracks)");
    }
    const Client idle;
    ASSERT_EQ(idle.result(open_main), 0);
    for (const std::string &query : {track, position, play}) {
        EXPECT_EQ(idle.result(query), ENODATA);
    }
}

// Calls with a time limit do not hang on a service that has stopped.
TEST_F(Serving, HoldsNobodyLongerThanTheyWait) {
    VantroHandle *const handle = vantro_connect_timed(10'000);
    ASSERT_EQ(vantro_open(handle, "main"), 0);
    VantroHandle *const other = vantro_connect_timed(10'000); // has no player open
    const auto times_out = [](auto call) {
        errno = 0;
        EXPECT_TRUE(call());
        EXPECT_EQ(errno, ETIMEDOUT);
        EXPECT_EQ(vantro_last_failure(nullptr), VANTRO_FAILURE_TIMED_OUT);
    };
    service->stop();
    for (VantroHandle *const each : {handle, other}) {
        ASSERT_EQ(vantro_set_timeout(each, 20), 0);
    }
    for (int i = 0; i < 20; ++i) {
        times_out([&] { return vantro_pause(handle) == -1; });
    }
    times_out([&] { return vantro_open(other, "main") == -1; });
    times_out([] { return !vantro_connect_timed(20); });
    service->kill(SIGCONT);
    for (VantroHandle *const each : {handle, other}) {
        ASSERT_EQ(vantro_set_timeout(each, 10'000), 0);
        EXPECT_EQ(vantro_open(each, "main"), 0);
        VantroStateInfo *info = nullptr;
        EXPECT_EQ(vantro_get_current_state(each, &info), 0);
        std::free(info);
        ASSERT_EQ(vantro_set_timeout(each, 20), 0);
    }
    service->stop();
    times_out([&] { return vantro_close(handle, "main") == -1; });
    for (VantroHandle *const each : {handle, other}) { // with a player open, and without
        EXPECT_EQ(vantro_disconnect(each), 0);
    }
    service->kill(SIGCONT);
}

TEST_F(Serving, StartsAgainWithWhatItKnows) {
    uint64_t before = 0;
    for (int start_again = 0; start_again < 2; ++start_again) {
        const Client client;
        ASSERT_EQ(client.result(open_main), 0);
        const uint64_t tsid = id_in(client.ask(create(1, "", 0, 0)));
        EXPECT_GT(tsid, before);
        before = tsid;

        service->kill(SIGTERM); // the second time a scan has just begun
        EXPECT_EQ(service->wait(), 0);
        start({"--music", path_ + "/music"});
        ASSERT_EQ(told(), "vantrod: ready (2 tracks, players: main)");
    }
}

// Receives the messages that systemd would receive.
class Managed : public Vantrod {
  protected:
    void SetUp() override {
        Vantrod::SetUp();
        test::make_music(path_ + "/music/1.flac", 1'000);
        struct sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        const std::string name = path_ + "/notify";
        name.copy(address.sun_path, sizeof address.sun_path - 1);
        ASSERT_EQ(bind(manager_, reinterpret_cast<struct sockaddr *>(&address), sizeof address), 0);
        setenv("NOTIFY_SOCKET", name.c_str(), 1);
        start({"--music", path_ + "/music", "--threads", "2"});
        unsetenv("NOTIFY_SOCKET");
        EXPECT_EQ(next(), "STATUS=0 tracks so far, scanning");
        EXPECT_EQ(next(), "READY=1");
    }
    ~Managed() override { close(manager_); }
    // "" if nothing comes within the time.
    std::string next(int wait_ms = 20'000) const {
        char text[200];
        pollfd polled = {manager_, POLLIN, 0};
        const ssize_t length =
            poll(&polled, 1, wait_ms) == 1 ? recv(manager_, text, sizeof text, 0) : 0;
        return std::string(text, static_cast<size_t>(std::max<ssize_t>(length, 0)));
    }
    const int manager_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};

TEST_F(Managed, TellsWhenItIsReadyReadsAgainAndEnds) {
    EXPECT_EQ(Client().result(open_main), 0);
    EXPECT_EQ(next(), "STATUS=1 tracks");
    service->kill(SIGHUP);
    const std::string reloading = next();
    EXPECT_EQ(reloading.rfind("RELOADING=1\nMONOTONIC_USEC=", 0), 0u) << reloading;
    EXPECT_EQ(next(), "READY=1");
    service->kill(SIGTERM);
    EXPECT_EQ(next(), "STOPPING=1");
    EXPECT_EQ(service->wait(), 0);
}

struct Watched : Managed {
    void SetUp() override {
        setenv("WATCHDOG_USEC", "300000", 1);
        Managed::SetUp();
        unsetenv("WATCHDOG_USEC");
    }
};

// Threads are stopped one by one, as a debugger does it; the rest of the process goes on.
TEST_F(Watched, TellsThatItWorksOnlyWhileItsThreadsDo) {
    for (std::string line = next(); line != "STATUS=1 tracks"; line = next()) {
        ASSERT_EQ(line, "WATCHDOG=1");
    }
    for (const char *name : {"clock", "serving"}) {
        for (int pings = 0; pings < 3; ++pings) {
            ASSERT_EQ(next(), "WATCHDOG=1");
        }
        std::vector<pid_t> stopped;
        const std::string tasks = fmt::format("/proc/{}/task", service->id());
        for (const auto &task : std::filesystem::directory_iterator(tasks)) {
            std::string comm;
            std::getline(std::ifstream(task.path() / "comm"), comm);
            if (comm == name) {
                stopped.push_back(std::stoi(task.path().filename()));
                if (ptrace(PTRACE_SEIZE, stopped.back(), nullptr, nullptr) != 0) {
                    GTEST_SKIP() << "no thread can be stopped here: the watchdog was NOT tried";
                }
                ptrace(PTRACE_INTERRUPT, stopped.back(), nullptr, nullptr);
                waitpid(stopped.back(), nullptr, __WALL);
            }
        }
        ASSERT_FALSE(stopped.empty()) << name;
        int late = 0; // those under way, and one of a look that had begun
        for (; next(1000) == "WATCHDOG=1"; ++late) {
            ASSERT_LT(late, 5) << name;
        }
        for (const pid_t thread : stopped) {
            ptrace(PTRACE_DETACH, thread, nullptr, nullptr);
        }
        EXPECT_EQ(next(), "WATCHDOG=1") << name;
    }
}

TEST_F(Vantrod, AsksTheGrantorForCapabilities) {
    test::write_file(path_ + "/policy", fmt::format("uid:{} net audio\n", geteuid()));
    test::Process grantor(std::vector<std::string>{VANTRO_GRANTOR, "--policy", path_ + "/policy"});
    ASSERT_NE(grantor.line(), "");
    for (const char *capabilities : {"net,audio", "net,secret"}) {
        start({"--require", capabilities});
        ASSERT_EQ(told(), "vantrod: ready (0 tracks, players: main)");
        const std::string ring = path_ + "/vantro/kivo/services/vantro/main/ring";
        EXPECT_EQ(std::filesystem::status(ring).permissions(), std::filesystem::perms::owner_read);
        const bool granted = Client().client != nullptr;
        EXPECT_EQ(granted, std::string(capabilities) == "net,audio") << capabilities;
        test::Process by_path(std::vector<std::string>{VANTROD, "--perms", "600"});
        EXPECT_NE(by_path.line().find("another vantrod is running"), std::string::npos);
        service->kill(SIGTERM);
        const std::string log = service->rest();
        EXPECT_EQ(log.find("may not open \"vantro.sys\": it does not hold the capability "
                           "\"secret\"\n") == log.npos,
                  granted)
            << log;
        EXPECT_EQ(service->wait(), 0);
    }
}

// A user who may not connect cannot see what is played either.
TEST_F(Vantrod, LetsThoseFollowWhoMayConnect) {
    const uid_t other = geteuid() + 4321;
    const struct {
        std::vector<std::string> options;
        mode_t mode; // with an access control list the group's bits are those of its mask
        bool listed;
    } rows[] = {
        {{}, 0444, false},
        {{"--perms", "600"}, 0400, false},
        {{"--perms", "660"}, 0440, false},
        {{"--perms", "644"}, 0400, false}, // connecting takes writing as well
        {{"--perms", "600", "--uid", std::to_string(other)}, 0440, true},
        {{"--perms", "660", "--gid", std::to_string(other)}, 0440, true},
        {{"--perms", "666", "--uid", std::to_string(other)}, 0444, false},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.options));
        start(row.options);
        ASSERT_EQ(told(), "vantrod: ready (0 tracks, players: main)");
        const std::string ring = path_ + "/vantro/kivo/services/vantro/main/ring";
        struct stat status = {};
        ASSERT_EQ(stat(ring.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, row.mode);
        EXPECT_EQ(status.st_uid, geteuid()) << "another could shorten it";
        char list[256];
        const ssize_t size = getxattr(ring.c_str(), "system.posix_acl_access", list, sizeof list);
        EXPECT_EQ(size > 0, row.listed);
        EXPECT_EQ(size > 0 && std::string(list, static_cast<size_t>(size)).find(bytes(other)) !=
                                  std::string::npos,
                  row.listed);
        service->kill(SIGKILL); // the next service reuses what it left, and admits nobody else
        service->wait();
    }
}

TEST_F(Vantrod, RefusesBadOptionsByNameAndValue) {
    struct {
        std::vector<std::string> arguments;
        int exit_code;
    } const table[] = {
        {{"--threads", "'65'"}, 2},
        {{"--threads", "'4x'"}, 2},
        {{"--perms", "'688'"}, 2},
        {{"--uid", "'-1'"}, 2},
        {{"--gid", "'4294967295'"}, 2},
        {{"--player", "'a/b'"}, 2},
        {{"--player", "'" + std::string(32, 'n') + "'"}, 2},
        {{"--player", "'a'", "--player", "'a'"}, 2},
        {{"--require", "'net,,audio'"}, 2},
        {{"--require", "net", "--perms", "0"}, 2},
        {{"--loud"}, 2},
        {{"--audio", "'loud'"}, 2},
        {{"--replaygain", "'disc'"}, 2},
        {{"--audio-device", "'den=null'"}, 2}, // no such player
        {{"--audio-device", "null", "--audio-device", "'pcm/a=b'"}, 2},
        {{"--music", "'/nowhere/at/all'"}, 1},
        {{"--music", path_, "--music", "'" + path_ + "/.'"}, 1},
        {{"--state", "'/dev/null/state'"}, 1},
        {{"--require", "net"}, 1}, // and no grantor device
    };
    for (const auto &row : table) {
        // Values are printed in quotes, and given without.
        std::vector<std::string> arguments = row.arguments;
        for (std::string &word : arguments) {
            word.erase(std::remove(word.begin(), word.end(), '\''), word.end());
        }
        start(arguments);
        const std::string line = told();
        for (const std::string &word : row.arguments) {
            EXPECT_TRUE(line.find(word) != std::string::npos || word == "net" || word == "0" ||
                        word == "null")
                << line;
        }
        EXPECT_EQ(service->wait(), row.exit_code) << line;
    }
}

} // namespace

} // namespace vantro::service
