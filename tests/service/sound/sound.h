// Players with sound: files with tones, and the samples that mpv writes.
#ifndef VANTRO_TESTS_SERVICE_SOUND_SOUND_H
#define VANTRO_TESTS_SERVICE_SOUND_SOUND_H

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

#include <vantro/events.h>

#include "tests/service/vantrod.h"

namespace vantro::service {

using Samples = std::vector<int16_t>;

inline constexpr int rate = 8000;

// If nothing happens for so long, nothing will.
inline constexpr int32_t longest_wait_ms = 20000;

// Tones of different numbers have no sequence of samples in common. No sample is 0, as in silence.
inline Samples tone(int ms, int number) {
    Samples samples;
    for (int i = 0; i < ms * rate / 1000; ++i) {
        samples.push_back(static_cast<int16_t>((i * (7 + 2 * number) % 20000 - 10000) | 1));
    }
    return samples;
}

inline Samples cut(const Samples &samples, size_t from, size_t to = SIZE_MAX) {
    return {samples.begin() + static_cast<std::ptrdiff_t>(from),
            samples.begin() + static_cast<std::ptrdiff_t>(std::min(to, samples.size()))};
}

// The samples in the bytes of a file or pipe.
inline Samples samples_of(std::string_view bytes) {
    Samples samples(bytes.size() / sizeof(int16_t));
    std::copy_n(bytes.data(), samples.size() * sizeof(int16_t),
                reinterpret_cast<char *>(samples.data()));
    return samples;
}

inline Samples operator+(Samples left, const Samples &right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

inline std::string wav(const Samples &samples, int per_second = rate, uint16_t channels = 1) {
    const auto size = static_cast<uint32_t>(samples.size() * sizeof(int16_t));
    const auto frame = static_cast<uint16_t>(2 * channels);
    return "RIFF" + bytes(size + 36) + "WAVEfmt " +
           bytes(16, uint16_t{1}, channels, per_second, per_second * frame, frame, uint16_t{16}) +
           "data" + bytes(size) + std::string(reinterpret_cast<const char *>(samples.data()), size);
}

class Sound : public Vantrod {
  protected:
    void SetUp() override {
        Vantrod::SetUp();
        std::filesystem::create_directory(music_ = path_ + "/music");
        // A user's own configuration and scripts of mpv must have no effect.
        std::filesystem::create_directories(path_ + "/config/mpv");
        test::write_file(path_ + "/config/mpv/mpv.conf", "volume=10\nmute=yes\nspeed=3\n");
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
    // Returns when all files are loaded as a session, which is paused.
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

    // Reads events up to a wanted one, and records errors and starts of tracks: "E3", "T1". If
    // several tracks start between two reads, only the last one is recorded.
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
    std::string until_state(int32_t wanted) {
        return until([wanted](const VantroEvent &event) {
            return event.type == VANTRO_EVENT_STATE && event.state == wanted;
        });
    }

    std::string until_track(int32_t index) {
        return until([index](const VantroEvent &event) {
            return event.type == VANTRO_EVENT_TRACK && event.details.track.index == index;
        });
    }

    // Ends the service, so that the file that it writes is complete.
    Samples heard() {
        service->kill(SIGTERM);
        EXPECT_EQ(service->wait(), 0);
        std::ifstream file(path_ + "/out.wav", std::ios::binary);
        const std::string whole{std::istreambuf_iterator<char>(file), {}};
        const size_t data = whole.find("data");
        if (data == whole.npos) {
            return {};
        }
        return samples_of(std::string_view(whole).substr(data + 8));
    }

    std::filesystem::path music_;
    VantroHandle *player_ = nullptr;
    uint64_t tsid_ = 0;
};

} // namespace vantro::service

#endif
