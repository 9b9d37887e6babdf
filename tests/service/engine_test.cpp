#include "service/playback/engine.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <set>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

namespace vantro {

namespace {

std::vector<Track> queue_of(const std::vector<int32_t> &durations_ms) {
    std::vector<Track> tracks(durations_ms.size());
    for (std::size_t i = 0; i < tracks.size(); ++i)
        tracks[i].duration_ms = durations_ms[i];
    return tracks;
}

struct Bench {
    explicit Bench(std::vector<Track> queue) : tracks(std::move(queue)) {}
    const std::vector<Track> tracks;
    std::chrono::nanoseconds now{1};
    Engine engine{tracks, [this] { return now; }, 7};

    int command(const std::string &word) {
        const std::string name = word.substr(0, word.find('='));
        const double value = name == word ? 0 : std::stod(word.substr(name.size() + 1));
        return name == "play"       ? engine.play()
               : name == "pause"    ? engine.pause()
               : name == "stop"     ? engine.stop()
               : name == "next"     ? engine.next()
               : name == "previous" ? engine.previous()
               : name == "seek"     ? engine.seek(static_cast<int32_t>(value))
               : name == "rate"     ? engine.set_rate(static_cast<float>(value))
               : name == "repeat"   ? engine.set_repeat(static_cast<int32_t>(value))
               : name == "shuffle"  ? engine.set_shuffle(static_cast<int32_t>(value))
                                    : -1;
    }

    // State, index and position, as P1@250: Idle, Playing, Held or Stopped.
    std::string seen() {
        const Engine::Snapshot is = engine.snapshot();
        return " IPHS"[is.modes.state] + std::to_string(is.index) + "@" +
               std::to_string(is.position_ms);
    }
};

// Told on a queue of 10, 20 and 30 seconds: commands, milliseconds that pass, what is then seen.
const std::pair<const char *, const char *> stories[] = {
    {"tracks follow each other to the end of the queue",
     "I0@0 +9999999 I0@0 play P0@0 +9999 P0@9999 +1 P1@0 +49999 P2@29999 +1 S0@0 +99999 S0@0 "
     "play P0@0"},
    {"a gap over the whole queue stops it", "play +60001 S0@0"},
    {"a pause holds the position",
     "play +4000 pause H0@4000 +9999999 pause H0@4000 play +1000 play P0@5000 stop S0@0 "
     "+99999 pause S0@0"},
    {"the rate counts from when it is set, and over ends of tracks",
     "play +4000 rate=2 P0@4000 +1000 P0@6000 +3000 P1@2000 rate=0.5 P1@2000 +1000 P1@2500 "
     "pause rate=16 +1000 H1@2500"},
    {"repeat all goes round, however long nobody asked",
     "repeat=1 play +60000 P0@0 +31536000000 +15000 P1@5000"},
    {"repeat one stays, and next leaves it",
     "repeat=2 play +86403000 P0@3000 next P1@0 +41000 P1@1000 next P2@0 next P0@0"},
    {"next behind the last track ends", "play next next P2@0 next S0@0 next S1@0"},
    {"previous restarts a track that has run a while",
     "play +12000 P1@2000 +1001 previous P1@0 +3000 previous P0@0 previous P0@0 repeat=1 "
     "previous P2@0"},
    {"seek is kept within the track",
     "seek=7000 I0@7000 play P0@7000 seek=-2147483648 P0@0 pause seek=2147483647 H0@10000 "
     "+9999 H0@10000 play P1@0"},
    {"shuffle keeps the track, but begins anew where none was played",
     "seek=10000 shuffle=1 I2@0 shuffle=0 I0@0 play next shuffle=1 shuffle=0 P1@0"},
};

TEST(Engine, PlaysAsTold) {
    for (const auto &[name, story] : stories) {
        Bench bench(queue_of({10'000, 20'000, 30'000}));
        std::istringstream words(story);
        std::string told;
        for (std::string word; words >> word; told += word + " ") {
            SCOPED_TRACE(testing::Message() << name << ": " << told << "[" << word << "]");
            if (word[0] == '+')
                bench.now += std::chrono::milliseconds(std::stoll(word));
            else if (word.find('@') != std::string::npos)
                ASSERT_EQ(bench.seen(), word);
            else
                ASSERT_EQ(bench.command(word), 0);
        }
    }
}

TEST(Engine, RefusesWithoutChange) {
    Bench empty({});
    for (const char *refused : {"play", "next", "previous", "seek=1"})
        EXPECT_EQ(empty.command(refused), ENODATA) << refused;
    for (const char *harmless : {"pause", "stop", "shuffle=1", "shuffle=0"})
        EXPECT_EQ(empty.command(harmless), 0) << harmless;
    EXPECT_EQ(empty.seen(), "I-1@0");

    Bench bench(queue_of({10'000}));
    for (const char *bad : {"rate=0", "rate=-0.0", "rate=-1", "rate=16.1", "rate=nan", "rate=inf",
                            "repeat=-1", "repeat=3", "shuffle=-1", "shuffle=2"})
        EXPECT_EQ(bench.command(bad), ERANGE) << bad;
    const VantroStateInfo modes = bench.engine.snapshot().modes;
    EXPECT_EQ(modes.rate, 1.0f);
    EXPECT_EQ(modes.repeat + modes.shuffle, 0);
}

TEST(Engine, ShufflePlaysEveryTrackOnceAndWalksBack) {
    Bench bench(queue_of(std::vector<int32_t>(100, 1'000)));
    for (int i = 0; i < 40; ++i)
        bench.engine.next();
    bench.engine.play();
    bench.engine.set_shuffle(1);
    std::vector<int32_t> way;
    for (int i = 0; i < 100; ++i, bench.now += std::chrono::seconds(1))
        way.push_back(bench.engine.snapshot().index);
    EXPECT_EQ(way.front(), 40);
    EXPECT_EQ(std::set<int32_t>(way.begin(), way.end()).size(), 100u);
    EXPECT_FALSE(std::is_sorted(way.begin() + 1, way.end()));
    EXPECT_EQ(bench.seen(), "S40@0");

    for (int i = 0; i < 60; ++i)
        bench.engine.next();
    bench.engine.set_shuffle(1); // is on, and draws no new order
    for (std::size_t i = 60; i > 0; --i, bench.engine.previous())
        ASSERT_EQ(bench.engine.snapshot().index, way[i]);
    bench.engine.next();
    bench.engine.set_shuffle(0);
    EXPECT_EQ(bench.engine.snapshot().index, way[1]) << "the track goes on when shuffle ends";
}

} // namespace

} // namespace vantro
