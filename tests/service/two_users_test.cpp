// A service that runs as its own user, a user whom it admits, and a third user (the stranger) who
// tries to disturb it, to read its data and to impersonate it.
#include <cerrno>
#include <csignal>
#include <functional>
#include <numeric>

#include <fcntl.h>
#include <grp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <fmt/format.h>

#include <vantro/extras.h>
#include <vantro/messaging.h>
#include <vantro/platform/io.h>
#include <vantro/platform/names.h>
#include <vantro/platform/objects.h>
#include <vantro/player.h>

#include "tests/support/music.h"
#include "tests/support/process.h"

namespace vantro::service {

namespace {

enum User : uid_t { service_user = 70001, admitted = 70002, stranger = 70003 };
constexpr gid_t listeners = 70112; // the last group of the user who is admitted

void become(User user) {
    std::vector<gid_t> groups(12, listeners);
    std::iota(groups.begin(), groups.end() - (user == admitted ? 0 : 1), listeners - 11);
    if (setgroups(user == admitted ? 12 : 11, groups.data()) != 0 || setgid(user) != 0 ||
        setuid(user) != 0) {
        _exit(98);
    }
}

// 0 where a call succeeded, and otherwise its error.
template <typename Result>
int error_of(Result result) {
    return result == Result(-1) ? errno : 0;
}

int opened(const std::string &file, int flags) {
    return error_of(open(file.c_str(), flags | O_CLOEXEC));
}

// The answer to a raw message over a connection that everybody may have: to the global name by
// which a service keeps a second one away.
int told_to_all(uint8_t kind, const std::string &payload) {
    const TransportHeader header = {kind, 2, 0, 0, 0, 0, static_cast<uint32_t>(payload.size()),
                                    28,   0, 0};
    const std::string bytes(reinterpret_cast<const char *>(&header), sizeof header);
    const int connection = global_name_open("vantrod/vantro.sys/default", 0);
    char reply[64];
    return error_of(ipc_send_simple(connection, (bytes + payload).data(),
                                    bytes.size() + payload.size(), reply, sizeof reply));
}

constexpr rlim_t descriptors = 400; // of the service

// The error for one connection more than a user may have: a quarter of the descriptors, three for
// each connection.
int take_connections() {
    rlim_t taken = 0;
    while (global_name_open("vantrod/vantro.sys/default", 0) >= 0) {
        ++taken;
    }
    return taken == descriptors / 4 / 3 ? errno : 1;
}

int serve_in_its_place() {
    MsgServer *server = msgserver_create(1024, 1, MSGSERVER_FLAG_PATH);
    const auto refuse = [](MsgOsb *, MsgContext *, MsgService *) -> int32_t { return EIO; };
    return server ? error_of(msgserver_add(server, "vantro.sys", nullptr, nullptr, 64, refuse,
                                           refuse, nullptr))
                  : errno;
}

using TwoUsers = test::RuntimeDirectory;

// Whether other users can run the program.
bool service_can_start() {
    test::Process child([] {
        become(service_user);
        return access(VANTROD, X_OK) == 0 ? 0 : 1;
    });
    return child.wait() == 0;
}

// Runs as root in a /run of its own, in which the service owns the directory of names.
int in_a_run_of_its_own(const std::function<int()> &body) {
    constexpr int forbidden = 77;
    test::Process child([&] {
        const bool can = geteuid() == 0 && unshare(CLONE_NEWNS) == 0 &&
                         mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                         mount("none", "/run", "tmpfs", 0, "mode=755") == 0 &&
                         mkdir("/run/vantro", 0755) == 0 &&
                         chown("/run/vantro", service_user, service_user) == 0;
        return can && service_can_start() ? body() : forbidden;
    });
    const std::string output = child.rest();
    const int status = child.wait();
    EXPECT_TRUE(status == 0 || status == forbidden) << output;
    return status;
}

// Serves under the service's name in a folder of the stranger's own.
int be_impostor(const std::string &squat) {
    become(stranger);
    setenv("XDG_RUNTIME_DIR", squat.c_str(), 1);
    std::printf("%d\n", serve_in_its_place());
    std::fflush(stdout);
    return pause();
}

// A user who is admitted, and whose environment names the stranger's folder. Reports in each turn
// whether it is served.
int be_admitted(const std::string &squat, int turns) {
    become(admitted);
    setenv("XDG_RUNTIME_DIR", squat.c_str(), 1);
    VantroHandle *handle = vantro_connect();
    vantro_open(handle, "main");
    for (char turn; read(turns, &turn, 1) == 1;) {
        const VantroEvent *event = nullptr;
        const bool told = vantro_shuffle(handle, turn % 2) == 0 &&
                          (event = vantro_event_get(handle)) && event->object_name;
        std::puts(told ? "served" : "not served");
        std::fflush(stdout);
    }
    return 0;
}

struct Attempt {
    const char *name;
    std::function<int()> attempt;
    int error; // the error that the stranger gets
};

// `state`: the directory of the service. `process`: its folder in /proc.
std::vector<Attempt> attempts_of_a_stranger(const std::string &state, const std::string &process) {
    const std::string names = "/run/vantro/sys/csm/vantro.sys/";
    const std::string player = "/run/vantro/kivo/services/vantro/main/";
    const std::string objects = "/kivo/services/vantro/";
    const auto publishes = [=](const char *name) {
        return object_publisher_open((objects + name).c_str()) ? 0 : errno;
    };
    const auto moves = [](const std::string &file) {
        return error_of(rename(file.c_str(), (file + "x").c_str()));
    };
    return {
        {"connects", [] { return vantro_connect() ? 0 : errno; }, ENOENT},
        {"opens", [] { return told_to_all(MSG_KIND_OPEN, std::string("vantro.sys") + '\0'); },
         EACCES},
        {"asks with another's ids", [] { return told_to_all(MSG_KIND_PUTGET, "x"); }, ENOENT},
        {"fetches another's answers", [] { return told_to_all(MSG_KIND_GET, ""); }, ENOENT},
        {"closes another's open", [] { return told_to_all(MSG_KIND_CLOSE, ""); }, ENOENT},
        {"follows",
         [=] { return error_of(platform_open((objects + "main/.all?delta").c_str(), 0)); }, EACCES},
        {"writes the ring", [=] { return opened(player + "ring", O_RDWR); }, EACCES},
        {"takes the ring's lock", [=] { return opened(player + "lock", O_RDWR); }, EACCES},
        {"moves the ring", [=] { return moves(player + "ring"); }, EACCES},
        {"publishes in its place", [=] { return publishes("main"); }, EACCES},
        {"publishes another player", [=] { return publishes("den"); }, EACCES},
        {"reads the catalogue", [=] { return opened(state + "/catalogue.db", O_RDONLY); }, EACCES},
        {"reads its log", [=] { return opened(state + "/catalogue.db-wal", O_RDONLY); }, EACCES},
        {"lists covers", [=] { return opened(state + "/artwork", O_DIRECTORY); }, EACCES},
        {"unlinks the socket", [=] { return error_of(unlink((names + "default").c_str())); },
         EACCES},
        {"takes the name's lock", [=] { return opened(names + "default.lock", O_RDWR); }, EACCES},
        {"moves the socket", [=] { return moves(names + "default"); }, EACCES},
        {"moves the folder", [=] { return moves("/run/vantro/sys"); }, EACCES},
        {"serves in its place", serve_in_its_place, EACCES},
        {"takes all connections", take_connections, EAGAIN},
        {"takes its descriptors", [=] { return opened(process + "fd", O_DIRECTORY); }, EACCES},
        {"reads its memory", [=] { return opened(process + "mem", O_RDONLY); }, EACCES},
        {"ends it", [=] { return error_of(kill(std::stoi(process.substr(6)), SIGTERM)); }, EPERM},
    };
}

TEST_F(TwoUsers, AStrangerDisturbsNobodySeesNothingAndPassesForNobody) {
    ASSERT_EQ(chmod(path_.c_str(), 0755), 0);
    const std::string state = path_ + "/state", squat = path_ + "/squat";
    test::make_music(path_ + "/music/1.flac", 1000, {"TITLE=One"});
    std::filesystem::create_directory(state);
    std::filesystem::create_directory(squat);
    const int status = in_a_run_of_its_own([&] {
        EXPECT_EQ(chown(state.c_str(), service_user, service_user), 0);
        EXPECT_EQ(chown(squat.c_str(), stranger, stranger), 0);
        unsetenv("XDG_RUNTIME_DIR");
        test::Process service({VANTROD, "--music", path_ + "/music", "--state", state, "--perms",
                               "660", "--gid", std::to_string(listeners), "--audio", "clock"},
                              [] {
                                  const rlimit few = {descriptors, descriptors};
                                  setrlimit(RLIMIT_NOFILE, &few);
                                  become(service_user);
                              });
        std::string said;
        while (said.find("scanned") == said.npos && !(said = service.line()).empty()) {
        }
        EXPECT_NE(said, "");
        test::Process impostor([&] { return be_impostor(squat); });
        EXPECT_EQ(impostor.line(), "0");

        // The admitted user does not trust the stranger's folder, and is always served.
        int turns[2];
        EXPECT_EQ(pipe(turns), 0);
        test::Process user([&] { return be_admitted(squat, turns[0]); });
        char turn = 1;
        for (const Attempt &row :
             attempts_of_a_stranger(state, fmt::format("/proc/{}/", service.id()))) {
            test::Process other([&] { return become(stranger), row.attempt(); });
            EXPECT_EQ(other.wait(), row.error) << row.name;
            EXPECT_EQ(write(turns[1], &turn, 1), 1);
            EXPECT_EQ(user.line(), "served") << row.name;
            ++turn;
        }
        service.kill(SIGTERM);
        // The log says it once, however often it was tried.
        const std::string log = service.rest();
        const std::string line =
            fmt::format(" (vantrod_test) of user {0}, group {0} may not open \"vantro.sys\": "
                        "others may not read "
                        "and write (permission bits 660, owner {1}, group {2})",
                        +stranger, +service_user, listeners);
        EXPECT_NE(log.find(line), log.npos) << log;
        EXPECT_EQ(log.find("refused: ", log.find(line)), log.npos) << log;
        EXPECT_EQ(service.wait(), 0);
        return HasFailure() ? 1 : 0;
    });
    if (status == 77) {
        GTEST_SKIP() << "users cannot be made here: strangers were NOT tried";
    }
}

} // namespace

} // namespace vantro::service
