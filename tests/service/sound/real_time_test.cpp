// The samples at outputs that play in real time: the test's own sound server, whose output is a
// pipe, and mpv's null output.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include "tests/service/sound/sound.h"

namespace vantro::service {

namespace {

constexpr const char *server_program = "/usr/bin/pulseaudio";

// Reads all that the server's output writes.
class Recorder {
  public:
    explicit Recorder(const std::string &pipe) : pipe_(open(pipe.c_str(), O_RDONLY | O_NONBLOCK)) {
        thread_ = std::thread([this] { run(); });
    }
    ~Recorder() {
        ended_ = true;
        thread_.join();
        close(pipe_);
    }
    Recorder(const Recorder &) = delete;
    Recorder &operator=(const Recorder &) = delete;

    // The samples since the last call, without the silence before and after them. Waits for a
    // second of silence.
    Samples take() {
        Samples all;
        size_t end = 0;
        do {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            const std::lock_guard guard(mutex_);
            all = samples_;
            end = all.size();
            while (end > 0 && all[end - 1] == 0) {
                --end;
            }
        } while (all.size() - end < rate && !ended_);
        const std::lock_guard guard(mutex_);
        samples_.clear();
        size_t begin = 0;
        while (begin < end && all[begin] == 0) {
            ++begin;
        }
        return cut(all, begin, end);
    }

  private:
    void run() {
        std::string bytes;
        while (!ended_) {
            char block[4096];
            const ssize_t size = read(pipe_, block, sizeof block);
            if (size <= 0) {
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
                continue;
            }
            bytes.append(block, static_cast<size_t>(size));
            const std::lock_guard guard(mutex_);
            const size_t whole = bytes.size() / sizeof(int16_t);
            const size_t before = samples_.size();
            samples_.resize(before + whole);
            std::memcpy(samples_.data() + before, bytes.data(), whole * sizeof(int16_t));
            bytes.erase(0, whole * sizeof(int16_t));
        }
    }
    const int pipe_;
    std::atomic<bool> ended_ = false;
    std::mutex mutex_;
    Samples samples_;
    std::thread thread_;
};

// The machine's own outputs are hidden.
class NoOutput : public Sound {
  protected:
    void SetUp() override {
        Sound::SetUp();
        setenv("PULSE_SERVER", ("unix:" + path_ + "/sounds").c_str(), 1);
        setenv("ALSA_CONFIG_PATH", "/dev/null", 1);
        setenv("PIPEWIRE_REMOTE", "none", 1);
    }
    void TearDown() override {
        Sound::TearDown();
        for (const char *name : {"PULSE_SERVER", "ALSA_CONFIG_PATH", "PIPEWIRE_REMOTE"}) {
            unsetenv(name);
        }
    }
};

// All outputs are tried, by all players at once. If a library of one has one state for the whole
// process, players wait for each other for ever, in one of the first three rounds.
TEST_F(NoOutput, IsReportedByAllPlayersAtTheSameTime) {
    write("1.wav", wav(tone(300, 1)));
    std::vector<std::string> words = {"--music", music_, "--audio", "mpv", "--config", "/dev/null"};
    for (int i = 0; i < 8; ++i) {
        words.insert(words.end(), {"--player", std::to_string(i)});
    }
    start(words);
    while (told().rfind("vantrod: scanned", 0) != 0) {
        ASSERT_FALSE(service->ended());
    }
    std::vector<std::unique_ptr<VantroHandle, int (*)(VantroHandle *)>> players;
    for (int i = 0; i < 8; ++i) {
        players.emplace_back(vantro_connect(), vantro_disconnect);
        ASSERT_EQ(vantro_open(players.back().get(), std::to_string(i).c_str()), 0);
        ASSERT_EQ(vantro_create_trksession(players.back().get(), 1, "folders", nullptr,
                                           VANTRO_TRKSESSION_LOAD, &tsid_),
                  0);
        ASSERT_NE(vantro_event_get(players.back().get()), nullptr); // follows from here on
    }
    for (int round = 0; round < 8; ++round) { // their messages fit into the pipe
        for (const auto &player : players) {
            ASSERT_EQ(vantro_play(player.get()), 0);
        }
        for (const auto &player : players) {
            player_ = player.get();
            const std::string seen =
                until([](const VantroEvent &event) { return event.type == VANTRO_EVENT_ERROR; });
            player_ = nullptr;
            ASSERT_TRUE(seen.ends_with("E4")) << seen << " in round " << round;
        }
    }
    service->kill(SIGTERM);
    EXPECT_EQ(service->wait(), 0);
}

class SoundServer : public NoOutput {
  protected:
    void SetUp() override {
        NoOutput::SetUp();
        if (access(server_program, X_OK) != 0) {
            GTEST_SKIP() << "pulseaudio is not installed: outputs in real time were NOT tested";
        }
        start_server();
    }
    void TearDown() override {
        recorder_.reset();
        NoOutput::TearDown();
    }
    void start_server() {
        const std::string output = path_ + "/output";
        server_.emplace(
            std::vector<std::string>{
                server_program, "-n", "--daemonize=no", "--use-pid-file=no", "--exit-idle-time=-1",
                "--realtime=no", "--high-priority=no",
                "--load=module-native-protocol-unix auth-anonymous=1 socket=" + path_ + "/sounds",
                "--load=module-pipe-sink sink_name=heard format=s16le channels=1 rate=8000 "
                "use_system_clock_for_timing=yes file=" +
                    output},
            [this] { setenv("HOME", path_.c_str(), 1); });
        while (!std::filesystem::exists(path_ + "/sounds") || !std::filesystem::exists(output)) {
            ASSERT_FALSE(server_->ended()) << server_->rest();
        }
        recorder_.emplace(output);
    }
    std::optional<test::Process> server_;
    std::optional<Recorder> recorder_;
};

Samples without_silence(Samples samples) {
    samples.erase(std::remove(samples.begin(), samples.end(), 0), samples.end());
    return samples;
}

// On a busy machine the output may get no samples for a moment. The sound server then plays silence
// and may skip samples. This is not a fault of the player, so the test plays again, a limited
// number of times, until it does not happen.
TEST_F(SoundServer, HearsEachSampleOnce) {
    // Two parts of three seconds, and two of half a second.
    write("1.wav", wav(tone(7000, 1)));
    write("1.cue", "FILE 1.wav WAVE\nTRACK 01 AUDIO\nINDEX 01 00:00:00\n"
                   "TRACK 02 AUDIO\nINDEX 01 00:03:00\nTRACK 03 AUDIO\nINDEX 01 00:06:01\n"
                   "TRACK 04 AUDIO\nINDEX 01 00:06:40\n");
    write("2.wav", wav(tone(700, 2)));
    write("3.wav", wav(tone(900, 3)));
    load("pulse/heard");
    const Client client;
    ASSERT_EQ(client.result(open_main), 0);
    const auto nodes = client.list(browse(1, "folders"));
    ASSERT_EQ(nodes.size(), 6u);
    const Samples whole = tone(7000, 1);
    const size_t second = 3 * rate, third = 451 * rate / 75, fourth = 490 * rate / 75;
    const Samples parts[] = {cut(whole, 0, second),
                             cut(whole, second, third),
                             cut(whole, third, fourth),
                             cut(whole, fourth),
                             tone(700, 2),
                             tone(900, 3)};
    const struct {
        std::vector<size_t> order; // of the parts
        bool gapless;
    } rows[] = {
        {{4, 5}, true},
        {{0, 1, 4}, true},     // each part is the next of its file
        {{1, 2, 3, 4}, false}, // the short parts
        {{1, 3, 5, 2}, false}, // as in a shuffle
    };
    for (const auto &[order, gapless] : rows) {
        SCOPED_TRACE(testing::PrintToString(order));
        Samples wanted;
        std::string fault;
        std::string list;
        for (const size_t each : order) {
            wanted = wanted + parts[each];
            list += (list.empty() ? "" : "\n") + nodes[each].second;
        }
        for (int tries = 0; tries < 5 && (tries == 0 || !fault.empty()); ++tries) {
            ASSERT_EQ(client.ask(create(1, list, 0, VANTRO_TRKSESSION_PLAY)).size(), 12u);
            until_state(VANTRO_STATE_PLAYING);
            until_state(VANTRO_STATE_STOPPED);
            const Samples got = recorder_->take();
            const Samples heard = without_silence(got);
            const auto ends =
                std::mismatch(heard.begin(), heard.end(), wanted.begin(), wanted.end());
            fault = heard != wanted ? fmt::format("{} of {} samples, and {} alike", heard.size(),
                                                  wanted.size(), ends.first - heard.begin())
                    : gapless && got != wanted ? "there is a gap"
                                               : "";
        }
        EXPECT_EQ(fault, "") << "each time";
    }
}

TEST_F(SoundServer, ThatGoesAwayPausesThePlayer) {
    const Samples whole = tone(60000, 1);
    write("1.wav", wav(whole));
    load("pulse/heard");
    ASSERT_EQ(vantro_play(player_), 0);
    until([](const VantroEvent &event) {
        return event.type == VANTRO_EVENT_STATUS && event.details.status.position > 500;
    });
    server_->kill(SIGKILL);
    server_->wait();
    recorder_.reset();
    EXPECT_EQ(until_state(VANTRO_STATE_PAUSED), "E4");
    int32_t held_ms = 0;
    ASSERT_EQ(vantro_get_current_track_position(player_, &held_ms), 0);
    EXPECT_GT(held_ms, 500);
    ASSERT_EQ(vantro_play(player_), 0); // the sound server has not been started again
    EXPECT_EQ(until_state(VANTRO_STATE_PAUSED), "E4");
    std::filesystem::remove(path_ + "/sounds");
    std::filesystem::remove(path_ + "/output");
    start_server();
    ASSERT_EQ(vantro_play(player_), 0);
    until([=](const VantroEvent &event) {
        return event.type == VANTRO_EVENT_STATUS && event.details.status.position > held_ms + 500;
    });
    ASSERT_EQ(vantro_stop(player_), 0);
    const Samples again = recorder_->take();
    ASSERT_GT(again.size(), 0u);
    const Samples begin = cut(again, 0, 100);
    const auto from = std::search(whole.begin(), whole.end(), begin.begin(), begin.end());
    EXPECT_NEAR(static_cast<double>(from - whole.begin()) * 1000 / rate, held_ms, 5);
}

// Files are opened once, and read while they play.
class WhilePlaying : public Sound {
  protected:
    static constexpr int length_ms = 10000;
    // So many bytes a second that only a small part of a file is read ahead.
    static std::string file(int number) { return wav(tone(length_ms * 12, number), 48000, 2); }
};

TEST_F(WhilePlaying, FilesChangeAndVanish) {
    const struct {
        const char *what;
        std::function<void(const std::filesystem::path &)> change;
        int32_t seek_ms; // afterwards, if not 0
    } rows[] = {
        {"vanishes", [](const auto &file) { std::filesystem::remove(file); }, length_ms - 300},
        {"is replaced",
         [this](const auto &file) {
             test::write_file(path_ + "/text", "a text");
             std::filesystem::rename(path_ + "/text", file);
         },
         length_ms - 300},
        {"is cut", [](const auto &file) { std::filesystem::resize_file(file, 44 + 3 * 192000); },
         0},
        {"is emptied", [](const auto &file) { std::filesystem::resize_file(file, 0); }, 0},
        {"becomes noise",
         [](const auto &file) {
             test::write_file(file, std::string(44 + 192 * length_ms, '\x55'));
         },
         length_ms - 300},
    };
    const int last = static_cast<int>(std::size(rows));
    for (int i = 0; i <= last; ++i) {
        write(std::to_string(i) + ".wav", file(i));
    }
    load("null");
    ASSERT_EQ(vantro_play(player_), 0);
    for (int i = 0; i < last; ++i) {
        SCOPED_TRACE(rows[i].what);
        until([](const VantroEvent &event) {
            return event.type == VANTRO_EVENT_STATUS && event.details.status.position > 300 &&
                   event.details.status.position < length_ms / 2;
        });
        rows[i].change(music_ / (std::to_string(i) + ".wav"));
        if (rows[i].seek_ms != 0) {
            ASSERT_EQ(vantro_seek(player_, rows[i].seek_ms), 0);
        }
        int32_t furthest_ms = 0;
        const std::string seen = until([&](const VantroEvent &event) {
            if (event.type == VANTRO_EVENT_STATUS) {
                furthest_ms = std::max(furthest_ms, event.details.status.position);
            }
            return event.type == VANTRO_EVENT_TRACK && event.details.track.index == i + 1;
        });
        EXPECT_EQ(seen.find_first_of("Eg"), std::string::npos) << seen; // no error, and not gone
        if (rows[i].seek_ms == 0) {
            EXPECT_LT(furthest_ms, length_ms - 2000); // the part that was read ahead is played
        }
    }
    ASSERT_EQ(vantro_stop(player_), 0);
    service->kill(SIGTERM);
    EXPECT_EQ(service->wait(), 0);
}

} // namespace

} // namespace vantro::service
