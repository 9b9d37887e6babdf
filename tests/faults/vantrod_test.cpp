// vantrod with allocations and system calls failing in turn under three clients, and on a disk that
// fails or a machine that stops between any two writes. After any failure the catalogue's file is
// intact. Once nothing fails any more, the lists match the music, and no session number is used
// twice.
#include <sqlite3.h>

#include <chrono>
#include <memory>
#include <optional>
#include <set>
#include <thread>

#include <vantro/catalogue.h>
#include <vantro/extras.h>
#include <vantro/platform/log.h>

#include "tests/faults/control_file.h"
#include "tests/support/music.h"
#include "tests/support/process.h"

namespace vantro::faults {

namespace {

using Names = std::set<std::string>;
using Clock = std::chrono::steady_clock;
using std::chrono::seconds;
using Handle = std::unique_ptr<VantroHandle, decltype(&vantro_disconnect)>;

// The exit code of a sanitizer that finds a fault, as scripts/test sets it.
constexpr int sanitizer_exit = 99;

// How long each test lasts.
seconds budget() {
    return seconds(budget_seconds());
}

class Vantrod : public test::RuntimeDirectory {
  protected:
    void SetUp() override {
        RuntimeDirectory::SetUp();
        system_log_set_sink([](uint32_t, int, const char *, void *) {}, nullptr);
        control_file.emplace(path_ + "/control");
        at = control_file->get();
        while (music.size() < 12) {
            add_song();
        }
    }
    void TearDown() override {
        service.reset();
        control_file.reset();
        RuntimeDirectory::TearDown();
    }

    void add_song() {
        const std::string title = fmt::format("song {:03}", songs_made++);
        test::make_music(path_ + "/music/" + title + ".flac", 100, {"TITLE=" + title});
        music.insert(title);
    }
    void change_music() {
        add_song();
        std::filesystem::remove(path_ + "/music/" + *music.begin() + ".flac");
        music.erase(music.begin());
    }
    void start() {
        service.emplace(
            std::vector<std::string>{VANTROD, "--music", path_ + "/music", "--audio", "clock"},
            [&] { control_file->name_in_environment(); });
    }
    // Waits for a line with this text, as long as the service prints something within the time.
    bool wait_for(const char *said, int ms) {
        for (std::string line = "-"; !line.empty() && service->readable(ms);) {
            line = service->line();
            if (line.find(said) != line.npos) {
                return true;
            }
        }
        return false;
    }
    // Ends the service, if it has not ended. @return the last lines it printed.
    std::string end(int signal) {
        service->kill(signal);
        std::string words = service->rest();
        status = service->wait();
        service.reset();
        return words;
    }

    static Handle connect() {
        Handle handle(vantro_connect(), vantro_disconnect);
        return handle && vantro_open(handle.get(), "main") == 0
                   ? std::move(handle)
                   : Handle(nullptr, vantro_disconnect);
    }
    // The songs that the service lists; nothing if a call fails.
    static std::optional<Names> listed() {
        const Handle handle = connect();
        MediaNode *nodes = nullptr;
        int count = 0;
        if (!handle || vantro_browse(handle.get(), 1, "songs", 0, &count, &nodes) != 0) {
            return std::nullopt;
        }
        Names names;
        for (int i = 0; i < count; ++i) {
            names.insert(nodes[i].name);
        }
        vantro_free_media_nodes(nodes, count);
        return names;
    }
    // Waits until the lists match the music. A file that is believed damaged is checked no sooner
    // than a minute after the check before it.
    void expect_music(const std::string &what) {
        const auto given_up = Clock::now() + seconds(60);
        std::optional<Names> names;
        while ((names = listed()) != music && Clock::now() < given_up) {
        }
        EXPECT_EQ(names.value_or(Names{"no list"}), music) << what;
    }
    // A new track session's number is above all earlier ones.
    void make_session(const std::string &what) {
        const Handle handle = connect();
        uint64_t session = 0;
        if (handle && vantro_create_trksession(handle.get(), 1, "songs", nullptr,
                                               VANTRO_TRKSESSION_LOAD, &session) == 0) {
            EXPECT_GT(session, last_session) << what;
            last_session = session;
        }
    }

    // Checks a copy: the file itself and its log must stay for the next service to recover.
    void expect_integrity(const std::string &what) const {
        const std::string kept = path_ + "/state/vantro/catalogue.db", copy = path_ + "/copy.db";
        for (const char *part : {"", "-wal"}) {
            std::filesystem::remove(copy + part);
            if (std::filesystem::exists(kept + part)) {
                std::filesystem::copy_file(kept + part, copy + part);
            }
        }
        sqlite3 *file = nullptr;
        std::string answer;
        ASSERT_EQ(sqlite3_open(copy.c_str(), &file), SQLITE_OK);
        sqlite3_exec(
            file, "PRAGMA integrity_check",
            [](void *to, int, char **columns, char **) {
                *static_cast<std::string *>(to) += columns[0];
                return 0;
            },
            &answer, nullptr);
        sqlite3_close(file);
        EXPECT_EQ(answer, "ok") << what;
        EXPECT_FALSE(std::filesystem::exists(path_ + "/state/vantro/catalogue.db.bad-1")) << what;
    }

    std::optional<ControlFile> control_file;
    Control *at = nullptr;
    Names music;
    int songs_made = 0;
    uint64_t last_session = 0;
    std::optional<test::Process> service;
    int status = 0;
};

// A failure may only lose an answer. A lack of memory may end the process, if it logs that.
TEST_F(Vantrod, FailsInTurnUnderThreeClients) {
    start();
    ASSERT_TRUE(wait_for("vantrod: scanned", 20'000));
    const auto end_of_test = Clock::now() + budget();
    int failures = 0;
    for (int round = 0; Clock::now() < end_of_test && !HasFailure(); ++round) {
        const Kind kind = round % 2 ? Kind::call : Kind::allocation;
        const Plan plan = {kind, round * 97 % 600, kind == Kind::call ? round / 2 % variants : 0,
                           round % 7 == 0 ? from_then_on : 1};
        const std::string what = words_of(plan);
        arm(*at, plan);
        change_music(); // the scan goes on beneath
        std::thread clients[3];
        for (std::thread &client : clients) {
            client = std::thread([&] {
                for (int i = 0; i < 5; ++i) {
                    for (const std::string &name : listed().value_or(Names{})) {
                        EXPECT_EQ(name.substr(0, 5), "song ") << what;
                    }
                }
            });
        }
        for (std::thread &client : clients) {
            client.join();
        }
        disarm(*at);
        failures += at->failed > 0;
        if (service->ended()) {
            const std::string words = end(0);
            EXPECT_TRUE(status == -SIGABRT || status > 0) << what << ": " << status;
            EXPECT_NE(status, sanitizer_exit) << what << ": " << words;
            EXPECT_NE(words, "") << what << ": ended without a word";
            start();
        }
        expect_music(what);
        make_session(what);
    }
    end(SIGTERM);
    EXPECT_EQ(status, 0);
    EXPECT_GT(failures, 0);
    expect_integrity("at the end");
}

// vantroctl distinguishes a failing disk from an entry that does not exist.
TEST_F(Vantrod, TellsAFailingDisk) {
    start();
    ASSERT_TRUE(wait_for("vantrod: scanned", 20'000));
    arm(*at, {Kind::disk, 0, 0, from_then_on});
    test::Process tool({VANTROCTL, "search", "other"});
    EXPECT_EQ(tool.rest().find("vantroctl: search failed: the service cannot read or write"), 0u);
    EXPECT_EQ(tool.wait(), 1);
}

// At the nth call on a file, the disk fails or the process or the machine stops, while a changed
// folder is scanned and a session made: the file is intact, and the next service has the music.
TEST_F(Vantrod, KeepsItsStateOnAFaultyDisk) {
    start();
    ASSERT_TRUE(wait_for("vantrod: scanned", 20'000));
    end(SIGTERM);
    const auto end_of_test = Clock::now() + budget();
    int failures = 0;
    for (int round = 0; Clock::now() < end_of_test && !HasFailure(); ++round) {
        const Plan ways[] = {{Kind::power, 0, 0, 1},
                             {Kind::death, 0, 0, 1},
                             {Kind::disk, 0, 0, 1},
                             {Kind::power, 0, 0, 1},
                             {Kind::disk, 0, 1, from_then_on},
                             {Kind::disk, 0, 2, 1},
                             {Kind::disk, 0, 0, from_then_on}};
        Plan plan = ways[round % std::size(ways)];
        plan.nth = round * 13 % 80;
        const std::string what = words_of(plan);
        change_music();
        arm(*at, plan);
        start();
        wait_for("vantrod: ready", 2000);
        make_session(what);
        wait_for("vantrod: scanned", 2000); // if the disk keeps failing, the scan does not end
        end(SIGTERM);
        const bool dies = plan.kind == Kind::death || plan.kind == Kind::power;
        EXPECT_TRUE(status == 0 || (dies && status == -SIGKILL) || status == 1)
            << what << ": " << status;
        disarm(*at);
        failures += at->failed > 0;
        expect_integrity(what);
        start();
        expect_music(what);
        make_session(what);
        end(SIGTERM);
        EXPECT_EQ(status, 0) << what;
    }
    EXPECT_GT(failures, 0);
}

} // namespace

} // namespace vantro::faults
