// What is heard, by the samples that mpv writes, and whether the player follows it.
#include <chrono>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <thread>

#include "tests/service/vantrod.h"

#include <vantro/events.h>

namespace vantro::service {

namespace {

using Samples = std::vector<int16_t>;

constexpr int rate = 8000;

// If nothing happens for so long, nothing will.
constexpr int32_t longest_wait_ms = 20000;

// Tones of different numbers have no stretch in common.
Samples tone(int ms, int number) {
    Samples samples;
    for (int i = 0; i < ms * rate / 1000; ++i) {
        samples.push_back(static_cast<int16_t>(i * (7 + 2 * number) % 20000 - 10000));
    }
    return samples;
}

Samples cut(const Samples &samples, size_t from, size_t to = SIZE_MAX) {
    return {samples.begin() + static_cast<std::ptrdiff_t>(from),
            samples.begin() + static_cast<std::ptrdiff_t>(std::min(to, samples.size()))};
}

Samples operator+(Samples left, const Samples &right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

std::string wav(const Samples &samples, int per_second = rate, uint16_t channels = 1) {
    const auto size = static_cast<uint32_t>(samples.size() * sizeof(int16_t));
    const auto frame = static_cast<uint16_t>(2 * channels);
    return "RIFF" + bytes(size + 36) + "WAVEfmt " +
           bytes(16, uint16_t{1}, channels, per_second, per_second * frame, frame, uint16_t{16}) +
           "data" + bytes(size) + std::string(reinterpret_cast<const char *>(samples.data()), size);
}

// FLAC whose header announces two seconds, but that has none.
std::string flac_without_sound() {
    std::string info = bytes(uint16_t{16}, uint16_t{16}) + std::string(6, '\0') +
                       std::string("\x01\xF4\x00\xF0\x00\x00\x3E\x80", 8) + std::string(16, '\0');
    info[0] = info[2] = 0x10; // blocks of 4096
    info[1] = info[3] = 0;
    return std::string("fLaC\x80\x00\x00\x22", 8) + info + std::string(5000, 'x');
}

class Sound : public Vantrod {
  protected:
    void SetUp() override {
        Vantrod::SetUp();
        std::filesystem::create_directory(music_ = path_ + "/music");
    }
    void TearDown() override {
        if (player_) {
            vantro_disconnect(player_);
        }
        Vantrod::TearDown();
    }
    void write(const std::string &file, const std::string &bytes) {
        test::write_file(music_ / file, bytes);
    }
    // Returns once all files are loaded as a session, which is held.
    void load(const std::string &device, const std::string &audio = "mpv",
              const std::string &config = "/dev/null") {
        start({"--music", music_, "--audio", audio, "--audio-device", device, "--config", config});
        while (told().rfind("vantrod: scanned", 0) != 0) {
            ASSERT_FALSE(service->ended());
        }
        player_ = vantro_connect();
        ASSERT_EQ(vantro_open(player_, "main"), 0);
        const Client client;
        ASSERT_EQ(client.result(open_main), 0);
        tsid_ = id_in(client.ask(create(1, "folders", 0, VANTRO_TRKSESSION_LOAD)));
        until([](const VantroEvent &event) { return event.type == VANTRO_EVENT_TRACK; });
    }
    void load_pcm() { load("pcm/" + path_ + "/out.wav"); }

    // Gets events up to one that is wanted, and notes errors and starts of tracks: "E3", "T1". If
    // several tracks start between two looks, the last one is noted.
    template <typename Wanted>
    std::string until(const Wanted &wanted) {
        std::string seen;
        for (;;) {
            const VantroEvent *event = vantro_event_get(player_);
            if (!event) {
                return seen + "gone";
            }
            if (event->object_name == nullptr && event->type == VANTRO_EVENT_NONE) {
                if (vantro_event_wait_for(player_, longest_wait_ms) != 1) {
                    return seen + "silence";
                }
                continue;
            }
            if (event->type == VANTRO_EVENT_ERROR) {
                seen += "E" + std::to_string(event->details.error.code);
            } else if (event->type == VANTRO_EVENT_TRACK) {
                seen += "T" + std::to_string(event->details.track.index);
            }
            if (wanted(*event)) {
                return seen;
            }
        }
    }
    std::string until_state(int32_t state) {
        return until([state](const VantroEvent &event) {
            return event.type == VANTRO_EVENT_STATE && event.state == state;
        });
    }

    std::string until_track(int32_t index) {
        return until([index](const VantroEvent &event) {
            return event.type == VANTRO_EVENT_TRACK && event.details.track.index == index;
        });
    }

    // Ends the service, which completes the file that it wrote.
    Samples heard() {
        service->kill(SIGTERM);
        EXPECT_EQ(service->wait(), 0);
        std::ifstream file(path_ + "/out.wav", std::ios::binary);
        const std::string whole{std::istreambuf_iterator<char>(file), {}};
        const size_t data = whole.find("data");
        if (data == whole.npos) {
            return {};
        }
        Samples samples((whole.size() - data - 8) / sizeof(int16_t));
        std::memcpy(samples.data(), whole.data() + data + 8, samples.size() * sizeof(int16_t));
        return samples;
    }

    std::filesystem::path music_;
    VantroHandle *player_ = nullptr;
    uint64_t tsid_ = 0;
};

// A reader gets each sample once, whenever it comes; without one the service ends all the same.
TEST_F(Sound, FeedsAPipe) {
    const Samples first = tone(6000, 1), second = tone(3000, 2); // more than a pipe holds
    write("1.wav", wav(first, 48000, 2));
    write("2.wav", wav(second, 48000, 2));
    const std::string pipe = path_ + "/pipe";
    load("pipe:" + pipe);
    for (const bool read : {true, false}) {
        ASSERT_EQ(vantro_play(player_), 0);
        if (!read) {
            break; // with the pipe full
        }
        while (!std::filesystem::exists(pipe)) {
            ASSERT_FALSE(service->ended());
        }
        std::ifstream reader(pipe, std::ios::binary);
        Samples got(first.size() + second.size());
        reader.read(reinterpret_cast<char *>(got.data()),
                    static_cast<std::streamsize>(got.size() * sizeof(int16_t)));
        EXPECT_EQ(reader.gcount(), static_cast<std::streamsize>(got.size() * sizeof(int16_t)));
        EXPECT_TRUE(got == first + second);
        until_state(VANTRO_STATE_STOPPED);
    }
    service->kill(SIGTERM);
    EXPECT_EQ(service->wait(), 0);
}

TEST_F(Sound, TracksFollowEachOtherWithoutALostOrAddedSample) {
    write("1.wav", wav(tone(700, 1)));
    write("2.wav", wav(tone(300, 2)));
    load_pcm();
    ASSERT_EQ(vantro_play(player_), 0);
    until_state(VANTRO_STATE_STOPPED);
    EXPECT_EQ(heard(), tone(700, 1) + tone(300, 2));
}

// The track is over before the player learns that it has begun.
TEST_F(Sound, ATrackOfTwoMillisecondsIsPlayedOnce) {
    write("1.wav", wav(tone(300, 1)));
    write("2.wav", wav(tone(2, 2)));
    load_pcm();
    ASSERT_EQ(vantro_play(player_), 0);
    until_state(VANTRO_STATE_STOPPED);
    EXPECT_EQ(heard(), tone(300, 1) + tone(2, 2));
}

// libmpv is loaded when the first session is made, so that play need not wait for it.
TEST_F(Sound, NothingOfMpvIsInMemoryBeforeASessionIsMade) {
    write("1.wav", wav(tone(300, 1)));
    start({"--music", music_, "--audio", "mpv", "--audio-device", "null", "--config", "/dev/null"});
    while (told().rfind("vantrod: scanned", 0) != 0) {
        ASSERT_FALSE(service->ended());
    }
    const auto loaded = [this] {
        std::ifstream file("/proc/" + std::to_string(service->id()) + "/maps");
        const std::string maps{std::istreambuf_iterator<char>(file), {}};
        EXPECT_NE(maps.find("vantrod"), maps.npos);
        return maps.find("libmpv") != maps.npos;
    };
    const Client client;
    ASSERT_EQ(client.result(open_main), 0);
    EXPECT_FALSE(loaded());
    EXPECT_EQ(client.ask(create(1, "folders", 0, VANTRO_TRKSESSION_LOAD)).size(), 12u);
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!loaded()) {
        ASSERT_LT(std::chrono::steady_clock::now(), until);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

// This includes a song that was to follow, and that the sound already has.
TEST_F(Sound, AQueueIsHeardAsItStandsInTheEnd) {
    for (const int number : {1, 2, 3}) {
        write(std::to_string(number) + ".wav", wav(tone(300, number)));
    }
    load_pcm();
    const Client client;
    ASSERT_EQ(client.result(open_main), 0);
    const auto nodes = client.list(browse(1, "folders"));
    ASSERT_EQ(nodes.size(), 3u);
    const auto change = [&](const std::string &list, int32_t index, int32_t start) {
        EXPECT_EQ(client.ask(create(1, list, index, start)).size(), 12u);
    };
    change(nodes[2].second + '\n' + nodes[0].second, 1, VANTRO_TRKSESSION_KEEP);
    change(nodes[1].second, 0, VANTRO_TRKSESSION_INSERT);
    change(nodes[2].second + '\n' + nodes[1].second, 0, VANTRO_TRKSESSION_APPEND);
    change(nodes[2].second, 0, VANTRO_TRKSESSION_INSERT);
    ASSERT_EQ(vantro_play(player_), 0);
    until_state(VANTRO_STATE_STOPPED);
    EXPECT_EQ(heard(), tone(300, 1) + tone(300, 3) + tone(300, 2) + tone(300, 3) + tone(300, 2));
}

TEST_F(Sound, BeginsWhereItWasSought) {
    write("1.wav", wav(tone(700, 1)));
    write("2.wav", wav(tone(300, 2)));
    load_pcm();
    ASSERT_EQ(vantro_next(player_), 0);
    ASSERT_EQ(vantro_seek(player_, 123), 0);
    ASSERT_EQ(vantro_play(player_), 0);
    until_state(VANTRO_STATE_STOPPED);
    EXPECT_EQ(heard(), cut(tone(300, 2), 123 * rate / 1000));
}

// Their ends fall on a sample (30 frames) and between two (47 frames).
constexpr const char *three_tracks = "FILE 1.wav WAVE\nTRACK 01 AUDIO\nINDEX 01 00:00:00\n"
                                     "TRACK 02 AUDIO\nINDEX 01 00:00:30\n"
                                     "TRACK 03 AUDIO\nINDEX 01 00:00:47\n";

TEST_F(Sound, TracksOfACueSheetFollowEachOtherWithoutALostOrAddedSample) {
    write("1.wav", wav(tone(1000, 1)));
    write("1.cue", three_tracks);
    load_pcm();
    ASSERT_EQ(vantro_play(player_), 0);
    until_track(2);
    until_state(VANTRO_STATE_STOPPED);
    EXPECT_EQ(heard(), tone(1000, 1));
}

// By an output with a buffer, which a seek to the start of the next one would empty. That there is
// no music of the one before any more shows in the time that all of them take: without the last
// third of a second of two of them it would be 2.3 seconds.
TEST_F(Sound, TracksOfACueSheetAreHeardToTheirEnds) {
    write("1.wav", wav(tone(3000, 1)));
    write("1.cue", "FILE 1.wav WAVE\nTRACK 01 AUDIO\nINDEX 01 00:00:00\n"
                   "TRACK 02 AUDIO\nINDEX 01 00:01:00\nTRACK 03 AUDIO\nINDEX 01 00:02:00\n");
    load("null");
    ASSERT_EQ(vantro_play(player_), 0);
    until_state(VANTRO_STATE_PLAYING);
    const auto began = std::chrono::steady_clock::now();
    until_track(2);
    until_state(VANTRO_STATE_STOPPED);
    EXPECT_GT(std::chrono::steady_clock::now() - began, std::chrono::milliseconds(2600));
}

// The seek is beyond the track's start by its own count, and the end is not that of the file.
TEST_F(Sound, ATrackOfACueSheetIsSoughtInAndEndsByItself) {
    write("1.wav", wav(tone(1000, 1)));
    write("1.cue", three_tracks);
    load_pcm();
    const Client client;
    ASSERT_EQ(client.result(open_main), 0);
    const auto nodes = client.list(browse(1, "folders"));
    ASSERT_EQ(nodes.size(), 3u);
    ASSERT_EQ(client.ask(create(1, nodes[1].second, 0, VANTRO_TRKSESSION_LOAD)).size(), 12u);
    ASSERT_EQ(vantro_seek(player_, 100), 0);
    ASSERT_EQ(vantro_play(player_), 0);
    until([](const VantroEvent &event) {
        return event.type == VANTRO_EVENT_STATUS && event.details.status.position >= 100;
    });
    until_state(VANTRO_STATE_STOPPED);
    const Samples got = heard();
    EXPECT_EQ(got, cut(tone(1000, 1), 500 * rate / 1000, 47 * rate / 75));
}

TEST_F(Sound, WhatWasSoughtToItsEndHasEnded) {
    write("1.wav", wav(tone(700, 1)));
    write("2.wav", wav(tone(300, 2)));
    load_pcm();
    ASSERT_EQ(vantro_seek(player_, 700), 0);
    ASSERT_EQ(vantro_play(player_), 0);
    const std::string seen = until_state(VANTRO_STATE_STOPPED);
    EXPECT_EQ(std::count(seen.begin(), seen.end(), 'E'), 0) << seen;
    EXPECT_EQ(heard(), tone(300, 2)) << seen;
}

TEST_F(Sound, IsAsLoudAsItWasSet) {
    write("1.wav", wav(tone(300, 1)));
    load_pcm();
    EXPECT_NE(vantro_set_volume(player_, 101), 0);
    EXPECT_NE(vantro_set_volume(player_, -1), 0);
    EXPECT_NE(vantro_set_muted(player_, 2), 0);
    ASSERT_EQ(vantro_set_volume(player_, 50), 0);
    const auto volume_event = [](const VantroEvent &event) {
        return event.object_name && std::string(event.object_name) == "volume" &&
               std::string(mosk_dict_find_value(event.dict, "level")) == "50" &&
               std::string(mosk_dict_find_value(event.dict, "muted")) == "false";
    };
    EXPECT_EQ(until(volume_event), "");
    VantroVolume volume = {};
    ASSERT_EQ(vantro_get_volume(player_, &volume), 0);
    EXPECT_EQ(volume.level, 50);
    EXPECT_EQ(volume.muted, 0);
    ASSERT_EQ(vantro_play(player_), 0);
    until_state(VANTRO_STATE_STOPPED);
    const Samples soft = heard();
    const Samples loud = tone(300, 1);
    ASSERT_EQ(soft.size(), loud.size());
    for (size_t i = 0; i < loud.size(); ++i) { // half the level is an eighth, as mpv has it
        ASSERT_NEAR(soft[i], loud[i] / 8.0, 2) << i;
    }
}

// Also by an output that is open already.
TEST_F(Sound, TakesReplayGainFromAConfigurationThatIsReadAgain) {
    const std::string config = path_ + "/vantrod.toml", wave = path_ + "/1.wav";
    test::write_file(wave, wav(tone(300, 1)));
    test::write_file(config, "");
    const std::string command = "flac -s -T 'REPLAYGAIN_TRACK_GAIN=-6.0206 dB' "
                                "-T REPLAYGAIN_TRACK_PEAK=0.5 -o " +
                                (music_ / "1.flac").native() + " " + wave;
    ASSERT_EQ(std::system(command.c_str()), 0);
    load("pcm/" + path_ + "/out.wav", "mpv", config);
    ASSERT_EQ(vantro_play(player_), 0);
    until_state(VANTRO_STATE_STOPPED);
    test::write_file(config, "replaygain = \"track\"\n");
    service->kill(SIGHUP);
    while (service->line().find("read again") == std::string::npos) {
        ASSERT_FALSE(service->ended());
    }
    ASSERT_EQ(vantro_play(player_), 0);
    until_state(VANTRO_STATE_STOPPED);
    const Samples loud = tone(300, 1);
    const Samples all = heard();
    ASSERT_GE(all.size(), loud.size());
    const Samples soft = cut(all, all.size() - loud.size());
    for (size_t i = 0; i < loud.size(); ++i) {
        ASSERT_NEAR(soft[i], loud[i] / 2.0, 2) << i;
    }
}

TEST_F(Sound, IsSilentWhileMuted) {
    write("1.wav", wav(tone(300, 1)));
    load_pcm();
    ASSERT_EQ(vantro_set_muted(player_, 1), 0);
    ASSERT_EQ(vantro_play(player_), 0);
    until_state(VANTRO_STATE_STOPPED);
    EXPECT_EQ(heard(), Samples(300 * rate / 1000));
}

// Whichever notices first, mpv or the look at the file, decides what the error is.
TEST_F(Sound, PassesOverWhatCannotBePlayed) {
    for (const char *file : {"1.wav", "2.wav", "3.wav", "4.wav"}) {
        write(file, wav(tone(200, 1)));
    }
    write("0.flac", flac_without_sound());
    write("5.wav", wav(tone(200, 5)));
    load_pcm();
    write("1.wav", "");
    write("2.wav", "a text");
    std::filesystem::remove(music_ / "3.wav");
    std::filesystem::resize_file(music_ / "4.wav", 44 + 1600);
    ASSERT_EQ(vantro_play(player_), 0);
    const std::string seen = until_state(VANTRO_STATE_STOPPED);
    EXPECT_EQ(std::count(seen.begin(), seen.end(), 'E'), 5) << seen;
    EXPECT_EQ(heard(), tone(200, 5)) << seen;
}

TEST_F(Sound, AnOutputThatComesBackGoesOn) {
    write("1.wav", wav(tone(300, 1)));
    load("pcm/" + path_ + "/later/out.wav");
    ASSERT_EQ(vantro_seek(player_, 100), 0);
    ASSERT_EQ(vantro_play(player_), 0);
    EXPECT_EQ(until_state(VANTRO_STATE_PAUSED), "E4");
    std::filesystem::create_directory(path_ + "/later");
    std::filesystem::create_symlink("later/out.wav", path_ + "/out.wav");
    ASSERT_EQ(vantro_play(player_), 0);
    EXPECT_EQ(until_state(VANTRO_STATE_STOPPED), "");
    EXPECT_EQ(heard(), cut(tone(300, 1), 100 * rate / 1000));
}

TEST_F(Sound, TheClockTakesThePlaceOfAnOutputThatNeverWas) {
    write("1.wav", wav(tone(300, 1)));
    load("pcm/" + path_ + "/never/out.wav", "auto");
    ASSERT_EQ(vantro_play(player_), 0);
    EXPECT_EQ(until_state(VANTRO_STATE_STOPPED), "");
    service->kill(SIGTERM);
    EXPECT_NE(service->rest().find("nothing is heard, positions follow the clock"),
              std::string::npos);
}

// The null output takes the time that the music lasts.
TEST_F(Sound, PlaysInRealTimeAndIsHeld) {
    write("1.wav", wav(tone(60000, 1)));
    write("2.wav", wav(tone(60000, 2)));
    load("null");
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_EQ(vantro_play(player_), 0);
    until([](const VantroEvent &event) {
        return event.type == VANTRO_EVENT_STATUS && event.details.status.position > 500;
    });
    ASSERT_EQ(vantro_pause(player_), 0);
    int32_t held = 0;
    ASSERT_EQ(vantro_get_current_track_position(player_, &held), 0);
    EXPECT_GT(held, 500);
    EXPECT_GT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(held - 50));
    EXPECT_EQ(until_state(VANTRO_STATE_PAUSED), "");
    ASSERT_EQ(vantro_seek(player_, 59500), 0);
    ASSERT_EQ(vantro_play(player_), 0);
    EXPECT_EQ(until_track(1), "T1");
    ASSERT_EQ(vantro_next(player_), 0);
    EXPECT_EQ(until_state(VANTRO_STATE_STOPPED), "");
}

} // namespace

} // namespace vantro::service
