// What is played, read from the samples that mpv writes, and whether the player's state follows it.
#include <chrono>
#include <cmath>
#include <thread>

#include "tests/service/sound/sound.h"

namespace vantro::service {

namespace {

// FLAC whose header announces two seconds, but that has none.
std::string flac_without_sound() {
    std::string info = bytes(uint16_t{16}, uint16_t{16}) + std::string(6, '\0') +
                       std::string("\x01\xF4\x00\xF0\x00\x00\x3E\x80", 8) + std::string(16, '\0');
    info[0] = info[2] = 0x10; // blocks of 4096
    info[1] = info[3] = 0;
    return std::string("fLaC\x80\x00\x00\x22", 8) + info + std::string(5000, 'x');
}

// A reader gets each sample once, whenever it begins to read. Without a reader the service still
// ends.
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

// libmpv is loaded when a player gets a session, also a restored one, so that play need not wait.
TEST_F(Sound, NothingOfMpvIsInMemoryBeforeThereIsASession) {
    write("1.wav", wav(tone(300, 1)));
    const auto loaded = [this] {
        std::ifstream file("/proc/" + std::to_string(service->id()) + "/maps");
        const std::string maps{std::istreambuf_iterator<char>(file), {}};
        EXPECT_NE(maps.find("vantrod"), maps.npos);
        return maps.find("libmpv") != maps.npos;
    };
    const auto wait_until_loaded = [&] {
        const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!loaded()) {
            ASSERT_LT(std::chrono::steady_clock::now(), until);
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    };
    for (int starts = 0; starts < 3; ++starts) {
        start({"--music", music_, "--audio", "mpv", "--audio-device", "null", "--config",
               "/dev/null"});
        while (told().rfind("vantrod: scanned", 0) != 0) {
            ASSERT_FALSE(service->ended());
        }
        if (starts == 2) {
            wait_until_loaded();
        } else {
            const Client client;
            ASSERT_EQ(client.result(open_main), 0);
            EXPECT_FALSE(loaded()) << starts;
            if (starts == 1) {
                EXPECT_EQ(client.ask(create(1, "folders", 0, VANTRO_TRKSESSION_LOAD)).size(), 12u);
                wait_until_loaded();
            }
        }
        service->kill(SIGTERM);
        ASSERT_EQ(service->wait(), 0);
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

// The output has a buffer, and a seek to the start of the next track would discard its content.
// Then the time that all tracks take would be too short: 2.3 seconds, without the last third of a
// second of two tracks.
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

// The seek's position counts from the track's start, and the track's end is not the end of the
// file.
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
                                "-T 'REPLAYGAIN_ALBUM_GAIN=-12.0412 dB' "
                                "-T REPLAYGAIN_TRACK_PEAK=0.5 -T REPLAYGAIN_ALBUM_PEAK=0.5 -o " +
                                (music_ / "1.flac").native() + " " + wave;
    ASSERT_EQ(std::system(command.c_str()), 0);
    load("pcm/" + path_ + "/out.wav", "mpv", config);
    const std::pair<const char *, int> rows[] = {{"track", 2}, {"off", 1}, {"album", 4}};
    for (const auto &[mode, divisor] : rows) {
        test::write_file(config, std::string("replaygain = \"") + mode + "\"\n");
        service->kill(SIGHUP);
        while (service->line().find("read again") == std::string::npos) {
            ASSERT_FALSE(service->ended());
        }
        ASSERT_EQ(vantro_play(player_), 0);
        until_state(VANTRO_STATE_STOPPED);
    }
    const Samples loud = tone(300, 1);
    const Samples all = heard(); // the last of them: the file begins again with each output
    ASSERT_GE(all.size(), loud.size());
    const Samples soft = cut(all, all.size() - loud.size());
    for (size_t i = 0; i < loud.size(); ++i) {
        ASSERT_NEAR(soft[i], loud[i] / 4.0, 2) << i;
    }
}

// At twice the rate a tone lasts half as long, at the same pitch.
TEST_F(Sound, ARateKeepsThePitch) {
    Samples wave;
    for (int i = 0; i < 2 * rate; ++i) {
        wave.push_back(static_cast<int16_t>(std::sin(i * 0.2) * 20000));
    }
    write("1.wav", wav(wave));
    load_pcm();
    ASSERT_EQ(vantro_set_playback_rate(player_, 2), 0);
    ASSERT_EQ(vantro_play(player_), 0);
    until_state(VANTRO_STATE_STOPPED);
    const Samples raw = heard(); // of floating-point samples
    std::vector<float> got(raw.size() / 2);
    std::memcpy(got.data(), raw.data(), got.size() * sizeof(float));
    EXPECT_NEAR(static_cast<double>(got.size()), rate, rate * 0.1);
    int waves = 0;
    for (size_t i = 1; i < got.size(); ++i) {
        waves += got[i - 1] < 0 && got[i] >= 0 ? 1 : 0;
    }
    const double expected = static_cast<double>(got.size()) * 0.2 / 6.2832;
    EXPECT_NEAR(waves, expected, expected * 0.1);
}

// A hundred of them stop the player, which then continues at its position.
TEST_F(Sound, FiveHundredBadFilesInARow) {
    for (int i = 100; i <= 600; ++i) {
        write(std::to_string(i) + ".wav", wav(tone(100, 1)));
    }
    load_pcm();
    for (int i = 100; i < 600; ++i) {
        write(std::to_string(i) + ".wav", i % 2 == 0 ? "" : "a text");
    }
    for (int plays = 0; plays < 5; ++plays) {
        ASSERT_EQ(vantro_play(player_), 0);
        int errors = 0;
        until([&](const VantroEvent &event) {
            errors += event.type == VANTRO_EVENT_ERROR ? 1 : 0;
            return errors == 100;
        });
        const Client client;
        ASSERT_EQ(client.result(open_main), 0);
        EXPECT_EQ(client.ask(state).substr(4, 4), bytes(int32_t{VANTRO_STATE_STOPPED}));
        EXPECT_EQ(client.ask(track).substr(4, 4), bytes(int32_t{100 * (plays + 1)}));
    }
    ASSERT_EQ(vantro_play(player_), 0);
    EXPECT_EQ(until_state(VANTRO_STATE_STOPPED).find('E'), std::string::npos);
    EXPECT_EQ(heard(), tone(100, 1));
}

TEST_F(Sound, IsSilentWhileMuted) {
    write("1.wav", wav(tone(300, 1)));
    load_pcm();
    ASSERT_EQ(vantro_set_muted(player_, 1), 0);
    ASSERT_EQ(vantro_play(player_), 0);
    until_state(VANTRO_STATE_STOPPED);
    EXPECT_EQ(heard(), Samples(300 * rate / 1000));
}

// The error depends on what notices it first, mpv or the check of the file. Two files become lists
// of other files, which must not be opened.
TEST_F(Sound, PassesOverWhatCannotBePlayed) {
    for (const char *file : {"1.wav", "2.wav", "3.wav", "4.wav", "4a.wav", "4b.wav"}) {
        write(file, wav(tone(200, 1)));
    }
    const std::string other = path_ + "/other.wav";
    test::write_file(other, wav(tone(200, 4)));
    write("0.flac", flac_without_sound());
    write("5.wav", wav(tone(200, 5)));
    load_pcm();
    write("1.wav", "");
    write("2.wav", "a text");
    std::filesystem::remove(music_ / "3.wav");
    std::filesystem::resize_file(music_ / "4.wav", 44 + 1600);
    write("4a.wav",
          "#EXTM3U\n#EXT-X-TARGETDURATION:1\n#EXTINF:0.2,\nfile://" + other + "\n#EXT-X-ENDLIST\n");
    write("4b.wav", "ffconcat version 1.0\nfile '" + other + "'\n");
    ASSERT_EQ(vantro_play(player_), 0);
    const std::string seen = until_state(VANTRO_STATE_STOPPED);
    EXPECT_EQ(std::count(seen.begin(), seen.end(), 'E'), 7) << seen;
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
    service->kill(SIGTERM);
    EXPECT_NE(service->rest().find("Failed to open " + path_ + "/later/out.wav"),
              std::string::npos);
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

// The null output takes as long as the music lasts.
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
