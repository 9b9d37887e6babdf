// vantrod with allocations and system calls failing in turn under three clients, and on a disk that
// fails or a machine that stops between any two writes. Whatever happened, the catalogue's file is
// whole, and once nothing fails any more the lists are the music.
#include <sqlite3.h>
#include <sys/mman.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <memory>
#include <optional>
#include <set>
#include <thread>

#include <fcntl.h>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <vantro/extras.h>
#include <vantro/platform/log.h>
#include <vantro/player.h>

#include "tests/faults/inject.h"
#include "tests/support/music.h"
#include "tests/support/process.h"

namespace vantro::faults {

namespace {

using Names = std::set<std::string>;
using Clock = std::chrono::steady_clock;

// How long the first test goes on, and half as long as the second does.
std::chrono::seconds budget() {
    const char *wanted = std::getenv("FAULTS_SECONDS");
    return std::chrono::seconds(wanted ? std::atoi(wanted) : 8);
}
constexpr int songs = 12;

class Vantrod : public test::RuntimeDirectory {
  protected:
    void SetUp() override {
        RuntimeDirectory::SetUp();
        system_log_set_sink([](uint32_t, int, const char *, void *) {}, nullptr);
        const std::string file = path_ + "/control";
        const int descriptor = open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        ASSERT_EQ(ftruncate(descriptor, sizeof(Control)), 0);
        void *mapped =
            mmap(nullptr, sizeof(Control), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
        ASSERT_NE(mapped, MAP_FAILED);
        close(descriptor);
        at = static_cast<Control *>(mapped);
        for (int i = 0; i < songs; ++i) {
            add_song(i);
        }
    }
    void TearDown() override {
        service.reset();
        munmap(at, sizeof(Control));
        RuntimeDirectory::TearDown();
    }

    void add_song(int number) {
        const std::string title = fmt::format("song {:03}", number);
        test::make_music(path_ + "/music/" + title + ".flac", 100, {"TITLE=" + title});
        music.insert(title);
    }
    void remove_song() {
        std::filesystem::remove(path_ + "/music/" + *music.begin() + ".flac");
        music.erase(music.begin());
    }

    void start() {
        const std::string file = path_ + "/control";
        service.emplace(std::vector<std::string>{VANTROD, "--music", path_ + "/music"},
                        [&] { setenv("VANTRO_FAULTS", file.c_str(), 1); });
    }
    void wait_for_scan() {
        std::string line = service->line();
        while (!line.empty() && line.find("vantrod: scanned") == line.npos) {
            line = service->line();
        }
        EXPECT_FALSE(line.empty()) << "vantrod ended";
    }
    // Ends the service, if it has not ended. @return its last words.
    std::string end(int signal) {
        service->kill(signal);
        std::string words = service->rest();
        status = service->wait();
        service.reset();
        return words;
    }

    // The songs that the service lists; nothing where a call fails.
    static std::optional<Names> listed() {
        const std::unique_ptr<VantroHandle, decltype(&vantro_disconnect)> handle(vantro_connect(),
                                                                                 vantro_disconnect);
        MediaSource *sources = nullptr;
        MediaNode *nodes = nullptr;
        int count = 0;
        if (!handle || vantro_open(handle.get(), "main") != 0 ||
            vantro_get_media_sources(handle.get(), &sources, &count) != 0) {
            return std::nullopt;
        }
        const int32_t source = count == 1 ? sources[0].id : -1;
        vantro_free_media_sources(sources, count);
        vantro_pause(handle.get());
        count = 0;
        if (vantro_browse(handle.get(), source, "songs", 0, &count, &nodes) != 0) {
            return std::nullopt;
        }
        Names names;
        for (int i = 0; i < count; ++i) {
            names.insert(nodes[i].name);
        }
        vantro_free_media_nodes(nodes, count);
        return names;
    }
    // Waits until the lists are the music.
    void expect_music(const std::string &what) {
        const auto given_up = Clock::now() + std::chrono::seconds(20);
        std::optional<Names> names;
        do {
            names = listed();
        } while (names != music && Clock::now() < given_up);
        EXPECT_TRUE(names.has_value()) << what << ": no list";
        EXPECT_EQ(names.value_or(Names{}), music) << what;
    }

    void expect_integrity(const std::string &what) const {
        sqlite3 *file = nullptr;
        std::string answer;
        ASSERT_EQ(sqlite3_open((path_ + "/state/vantro/catalogue.db").c_str(), &file), SQLITE_OK);
        sqlite3_exec(
            file, "PRAGMA integrity_check",
            [](void *to, int, char **columns, char **) {
                *static_cast<std::string *>(to) += columns[0];
                return 0;
            },
            &answer, nullptr);
        sqlite3_close(file);
        EXPECT_EQ(answer, "ok") << what;
    }

    Control *at = nullptr;
    Names music;
    std::optional<test::Process> service;
    int status = 0;
};

std::string words_of(Kind kind, int64_t nth, int variant, int64_t times) {
    return fmt::format("failure {} of kind {}, variant {}, {} times", nth, static_cast<int>(kind),
                       variant, times);
}

// A failure may cost an answer, and want of memory the process, with a word; nothing else.
TEST_F(Vantrod, FailsInTurnUnderThreeClients) {
    start();
    wait_for_scan();
    const auto end_of_test = Clock::now() + budget();
    int number = songs;
    int failures = 0;
    for (int64_t round = 0; Clock::now() < end_of_test; ++round) {
        const Kind kind = round % 2 ? Kind::call : Kind::allocation;
        const int variant = kind == Kind::call ? static_cast<int>(round / 2 % variants) : 0;
        const int64_t times = round % 7 == 0 ? from_then_on : 1;
        const std::string what = words_of(kind, round * 97 % 600, variant, times);
        arm(*at, kind, round * 97 % 600, variant, times);
        add_song(number++); // the scan goes on beneath
        remove_song();
        std::thread clients[3];
        for (std::thread &client : clients) {
            client = std::thread([&] {
                for (int i = 0; i < 5; ++i) {
                    const std::optional<Names> names = listed();
                    for (const std::string &name : names.value_or(Names{})) {
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
            EXPECT_NE(words, "") << what << ": ended without a word";
            start();
        }
        expect_music(what);
        if (HasFailure()) {
            break;
        }
    }
    end(SIGTERM);
    EXPECT_EQ(status, 0);
    EXPECT_GT(failures, 0);
    RecordProperty("failures", failures);
    expect_integrity("at the end");
}

// The disk fails, or the machine stops, at the nth call on a file while a changed folder is taken
// in: the file is whole, and the next service has the music.
TEST_F(Vantrod, KeepsItsCatalogueOnAFaultyDisk) {
    start();
    wait_for_scan();
    end(SIGTERM);
    constexpr struct {
        Kind kind;
        int variant;
        int64_t times;
    } ways[] = {{Kind::death, 0, 1},
                {Kind::disk, 0, 1},
                {Kind::disk, 1, from_then_on},
                {Kind::disk, 2, 1},
                {Kind::disk, 0, from_then_on}};
    const auto end_of_test = Clock::now() + 2 * budget();
    int number = songs;
    int failures = 0;
    for (int64_t round = 0; Clock::now() < end_of_test && !HasFailure(); ++round) {
        const auto &[kind, variant, times] = ways[round % std::size(ways)];
        const int64_t nth = round * 37 % 150;
        const std::string what = words_of(kind, nth, variant, times);
        add_song(number++);
        remove_song();
        arm(*at, kind, nth, variant, times);
        start();
        // A disk that keeps failing keeps the scan from its end.
        for (std::string line = "-"; !line.empty() && service->readable(2000);) {
            line = service->line();
            if (line.find("vantrod: scanned") != line.npos) {
                break;
            }
        }
        end(SIGTERM);
        EXPECT_TRUE(status == 0 || (kind == Kind::death && status == -SIGKILL) || status == 1)
            << what << ": " << status;
        disarm(*at);
        failures += at->failed > 0;
        expect_integrity(what);
        start();
        expect_music(what);
        end(SIGTERM);
        EXPECT_EQ(status, 0) << what;
    }
    EXPECT_GT(failures, 0);
    RecordProperty("failures", failures);
}

} // namespace

} // namespace vantro::faults
