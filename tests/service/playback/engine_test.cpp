#include "service/playback/engine.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <functional>
#include <set>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include <vantro/catalogue.h>

namespace vantro::service::playback {

namespace {

SessionPtr session_of(const std::vector<int32_t> &durations_ms, uint64_t tsid = 1) {
    std::vector<catalogue::QueuedSong> songs;
    songs.reserve(durations_ms.size());
    for (const int32_t duration : durations_ms) {
        songs.push_back({static_cast<catalogue::SongId>(songs.size()), 1, duration});
    }
    return std::make_shared<const TrackSession>(tsid, VANTRO_TRKSESSION_NODE, std::move(songs));
}

struct Bench {
    explicit Bench(SessionPtr session, bool sounding = false)
        : engine([this] { return now; }, 7, sounding) {
        engine.load(std::move(session), 0, false);
    }
    Bench() : engine([this] { return now; }, 7) {}
    std::chrono::nanoseconds now{1};
    Engine engine;
    sound::Wanted sound; // as asked for last

    int command(const std::string &word) {
        const std::string name = word.substr(0, word.find('='));
        const double value = name == word ? 0 : std::stod(word.substr(name.size() + 1));
        return name == "play"       ? engine.play()
               : name == "pause"    ? engine.pause()
               : name == "stop"     ? engine.stop()
               : name == "next"     ? engine.next()
               : name == "previous" ? engine.previous()
               : name == "jump"     ? engine.jump(static_cast<int32_t>(value))
               : name == "seek"     ? engine.seek(static_cast<int32_t>(value))
               : name == "rate"     ? engine.set_rate(static_cast<float>(value))
               : name == "repeat"   ? engine.set_repeat(static_cast<int32_t>(value))
               : name == "shuffle"  ? engine.set_shuffle(static_cast<int32_t>(value))
               : name == "file"     ? check_file(static_cast<int32_t>(value))
                                    : report(name, static_cast<int32_t>(value));
    }

    // What the sound reports about the track that it asked for last.
    int report(const std::string &what, int32_t value) {
        if (what == "asks") {
            sound = engine.wanted();
            EXPECT_EQ(sound.playing, engine.snapshot().modes.state == VANTRO_STATE_PLAYING);
            return sound.now.song == value ? 0 : EINVAL;
        }
        const int64_t us = int64_t{1000} * value;
        const std::pair<const char *, std::function<void()>> reports[] = {
            {"heard", [&] { engine.started(sound.now.number, us); }},
            {"at", [&] { engine.reached(sound.now.number, us); }},
            {"ended", [&] { engine.ended(sound.now.number); }},
            {"failed", [&] { engine.failed(sound.now.number, value); }},
            {"follows", [&] { engine.started(sound.next.number, us); }},
            {"follower_failed", [&] { engine.failed(sound.next.number, value); }},
            {"lost", [&] { engine.output_lost(); }},
            {"none", [&] { engine.no_output(); }},
        };
        for (const auto &[name, report] : reports) {
            if (what == name) {
                report();
                return 0;
            }
        }
        return -1;
    }

    // The check of the file finds this error for the track that started.
    int check_file(int32_t error) {
        const std::optional<Engine::Start> start = engine.take_start();
        if (start) {
            engine.checked(start->number, error);
        }
        return start ? 0 : ENOENT;
    }

    // Milliseconds until something is due: "~-" for never.
    std::string due() {
        const auto wait = engine.wake();
        return wait ? "~" + std::to_string(std::chrono::ceil<std::chrono::milliseconds>(
                                               *wait - std::chrono::microseconds(1))
                                               .count())
                    : "~-";
    }

    // What was noted since the last call: !STP,P for state, track and position, then position.
    std::string noted() {
        std::string text = "!";
        for (Engine::Change change; engine.first_change(change); engine.drop_change()) {
            text += text == "!" ? "" : ",";
            for (unsigned bit = 0; bit < 5; ++bit) {
                text += (change.what >> bit & 1u) != 0 ? std::string(1, "SNTPK"[bit]) : "";
            }
            text += change.error != 0 ? std::to_string(change.error) : "";
        }
        return text;
    }

    // State, index and position, as P1@250: Idle, Playing, Held or Stopped.
    std::string seen() {
        const Engine::Snapshot is = engine.snapshot();
        return " IPHS"[is.modes.state] + std::to_string(is.index) + "@" +
               std::to_string(is.position_ms);
    }
};

// Stories of a session with tracks of 10, 20 and 30 seconds, loaded and held: commands,
// milliseconds that pass, and the state after them.
const std::pair<const char *, const char *> stories[] = {
    {"tracks follow each other to the end of the session",
     "H0@0 +9999999 H0@0 play P0@0 +9999 P0@9999 +1 P1@0 +49999 P2@29999 +1 S0@0 +99999 S0@0 "
     "play P0@0"},
    {"a gap over the whole session stops it", "play +60001 S0@0"},
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
    {"next after the last track ends", "play next next P2@0 next S0@0 next S1@0"},
    {"previous restarts a track that has run a while",
     "play +12000 P1@2000 +1001 previous P1@0 +3000 previous P0@0 previous P0@0 repeat=1 "
     "previous P2@0"},
    {"seek is kept within the track",
     "seek=7000 H0@7000 play P0@7000 seek=-2147483648 P0@0 pause seek=2147483647 H0@10000 "
     "+9999 H0@10000 play P1@0"},
    {"jump keeps the state", "jump=2 H2@0 play +1000 jump=1 P1@0 +20000 P2@0 stop jump=1 S1@0"},
    {"shuffle keeps the track", "play next +5 shuffle=1 P1@5 shuffle=0 P1@5"},
    {"what changes is noted, once",
     "!SNTP stop !S stop !. play !SP play !. pause !SP pause !. seek=0 !P rate=1 !. rate=2 !S "
     "repeat=1 repeat=1 !S next !TP previous !TP previous !TP play +2000 previous !SP,P seek=1 !P "
     "rate=1 !SP shuffle=0 !. shuffle=1 !S jump=0 !TP"},
    {"time is told once a second, and ends of tracks when they come",
     "!SNTP ~- play !SP ~1000 !. +999 ~1 +1 ~1000 !K seek=500 !P ~1000 +250 rate=4 !SP ~1000 "
     "+2250 ~63 !K +63 P1@2 !TP rate=1 !SP +2999 seek=20000 !P ~1000 !TP P2@0 pause !SP ~-"},
    {"a file that cannot be played is passed over",
     "play !SNTP,SP file=0 !. next file=2 !TP,S2,STP P2@0 file=2 !S2,TP S0@0 play repeat=2 file=1 "
     "P1@0 file=1 P2@0 file=0 next P0@0 file=1 P1@0 file=1 P2@0 file=1 S0@0 ~-"},
};

// The same with a sound that reports what is heard; `asks=N` is the song that it is to play.
const std::pair<const char *, const char *> sounding_stories[] = {
    {"nothing moves before it is heard, nor goes on after its end",
     "play !SNTP,SP +500 P0@0 ~- asks heard=0 !P ~1000 +400 P0@400 +9700 P0@10000 pause H0@10000 "
     "asks follows H1@0 play +20 P1@20"},
    {"reports correct what was computed, and those of what is over are ignored",
     "play asks heard=0 +1000 at=1020 P0@1000 at=700 P0@700 seek=5000 heard=0 at=8000 ended "
     "P0@5000 asks heard=5000 rate=2 +100 P0@5200 next asks=1 ended P2@0 stop heard=0 ended S2@0"},
    {"what follows is what was asked for last",
     "play asks heard=0 repeat=2 follows P0@0 asks follows P0@0 repeat=0 asks follows P1@0 asks=1 "
     "next "
     "asks=2 heard=0 follows P2@0 ended S0@0"},
    {"what cannot be played is passed over, and a look at the file does not make it playable",
     "play asks heard=0 asks follower_failed=3 !SNTP,SP,P,TP,S3,STP P2@0 asks=2 failed=3 !S3,TP "
     "S0@0 "
     "repeat=1 play file=0 asks failed=2 file=0 asks=1 failed=2 file=0 asks=2 failed=2 S0@0 "
     "play pause asks failed=1 H0@0"},
    {"an output that goes away pauses, and the clock takes its place where there never was one",
     "play asks heard=0 +3000 !SNTP,SP,P lost !S4,SP H0@3000 heard=0 H0@3000 play asks none !SP,P "
     "+6999 P0@9999 +1 P1@0 ~1000"},
};

void expect(const char *name, const char *story, bool sounding) {
    Bench bench(session_of({10'000, 20'000, 30'000}), sounding);
    std::istringstream words(story);
    std::string told;
    for (std::string word; words >> word; told += word + " ") {
        SCOPED_TRACE(testing::Message() << name << ": " << told << "[" << word << "]");
        if (word[0] == '+') {
            bench.now += std::chrono::milliseconds(std::stoll(word));
        } else if (word.find('@') != std::string::npos) {
            ASSERT_EQ(bench.seen(), word);
        } else if (word[0] == '~') {
            ASSERT_EQ(bench.due(), word);
        } else if (word[0] == '!') {
            ASSERT_EQ(bench.noted(), word == "!." ? "!" : word);
        } else {
            ASSERT_EQ(bench.command(word), 0);
        }
    }
}

TEST(Engine, PlaysAsTold) {
    for (const auto &[name, story] : stories) {
        expect(name, story, false);
    }
    for (const auto &[name, story] : sounding_stories) {
        expect(name, story, true);
    }
}

TEST(Engine, IsNotHurriedNorStoppedByWhatIsOver) {
    Bench bench(session_of({1, 1}));
    bench.command("repeat=1");
    bench.command("play");
    EXPECT_EQ(bench.due(), "~10");
    const auto start = bench.engine.take_start();
    ASSERT_TRUE(start);
    bench.command("next");
    bench.engine.checked(start->number, VANTRO_ERROR_GONE);
    EXPECT_EQ(bench.seen(), "P1@0");
    bench.command("pause");
    EXPECT_FALSE(bench.engine.take_start());
}

TEST(Engine, RefusesWithoutChange) {
    Bench idle;
    for (const char *refused : {"play", "next", "previous", "seek=1", "jump=0"}) {
        EXPECT_EQ(idle.command(refused), ENODATA) << refused;
    }
    for (const char *harmless : {"pause", "stop", "shuffle=1", "shuffle=0"}) {
        EXPECT_EQ(idle.command(harmless), 0) << harmless;
    }
    EXPECT_EQ(idle.seen(), "I0@0");
    EXPECT_EQ(idle.engine.snapshot().session, nullptr);

    Bench bench(session_of({10'000}));
    for (const char *bad : {"rate=0", "rate=-0.0", "rate=-1", "rate=16.1", "rate=nan", "rate=inf",
                            "repeat=-1", "repeat=3", "shuffle=-1", "shuffle=2", "jump=-1", "jump=1",
                            "jump=2147483647", "jump=-2147483648"}) {
        EXPECT_EQ(bench.command(bad), ERANGE) << bad;
    }
    const VantroStateInfo modes = bench.engine.snapshot().modes;
    EXPECT_EQ(modes.rate, 1.0f);
    EXPECT_EQ(modes.repeat + modes.shuffle, 0);
}

TEST(Engine, TracksShorterThanTheLookAtTheirFilesAreJudged) {
    Bench bench(session_of({1, 1}));
    bench.engine.set_repeat(VANTRO_REPEAT_ALL);
    bench.engine.play();
    for (int looks = 0; const auto start = bench.engine.take_start(); ++looks) {
        ASSERT_LT(looks, 2);
        bench.now += std::chrono::milliseconds(5);
        bench.engine.checked(start->number, VANTRO_ERROR_GONE);
    }
    EXPECT_EQ(bench.engine.snapshot().modes.state, VANTRO_STATE_STOPPED);
}

TEST(Engine, ShufflePlaysEveryTrackOnceAndWalksBack) {
    Bench bench(session_of(std::vector<int32_t>(100, 1'000)));
    for (int i = 0; i < 40; ++i) {
        bench.engine.next();
    }
    bench.engine.play();
    bench.engine.set_shuffle(1);
    std::vector<int32_t> way;
    for (int i = 0; i < 100; ++i, bench.now += std::chrono::seconds(1)) {
        way.push_back(bench.engine.snapshot().index);
    }
    EXPECT_EQ(way.front(), 40);
    EXPECT_EQ(std::set<int32_t>(way.begin(), way.end()).size(), 100u);
    EXPECT_FALSE(std::is_sorted(way.begin() + 1, way.end()));
    EXPECT_EQ(bench.seen(), "S40@0");

    for (int i = 0; i < 60; ++i) {
        bench.engine.next();
    }
    bench.engine.set_shuffle(1); // is on, and draws no new order
    for (size_t i = 60; i > 0; --i, bench.engine.previous()) {
        ASSERT_EQ(bench.engine.snapshot().index, way[i]);
    }
    bench.engine.next();
    bench.engine.set_shuffle(0);
    EXPECT_EQ(bench.engine.snapshot().index, way[1]) << "the track goes on when shuffle ends";
}

TEST(Engine, JumpsInShuffleLoseNoTrackAndComeBack) {
    for (const int32_t target : {0, 17, 49, 3}) { // 0 has been played
        Bench bench(session_of(std::vector<int32_t>(50, 1'000)));
        ASSERT_EQ(bench.command("shuffle=1"), 0);
        for (int i = 0; i < 20; ++i) {
            bench.engine.next();
        }
        const int32_t from = bench.engine.snapshot().index;
        ASSERT_EQ(bench.engine.jump(target), 0);
        EXPECT_EQ(bench.engine.snapshot().index, target);
        if (target == from) {
            continue;
        }
        bench.engine.previous();
        EXPECT_EQ(bench.engine.snapshot().index, from);
        for (int i = 0; i < 50; ++i) {
            bench.engine.previous();
        }
        bench.engine.play();
        std::set<int32_t> heard;
        for (; bench.engine.snapshot().modes.state == VANTRO_STATE_PLAYING;
             bench.now += std::chrono::seconds(1)) {
            EXPECT_TRUE(heard.insert(bench.engine.snapshot().index).second);
        }
        EXPECT_EQ(heard.size(), 50u);
    }
}

TEST(Engine, LoadsOverWhatPlays) {
    Bench bench(session_of({10'000, 20'000, 30'000}));
    bench.command("play");
    bench.now += std::chrono::seconds(15);
    bench.engine.load(session_of({5'000, 6'000}, 2), 1, true);
    EXPECT_EQ(bench.seen(), "P1@0");
    bench.engine.unload(1);
    EXPECT_EQ(bench.seen(), "P1@0") << "the other session";
    bench.engine.unload(2);
    EXPECT_EQ(bench.seen(), "I0@0");
    bench.command("shuffle=1");
    bench.engine.load(session_of(std::vector<int32_t>(100, 1'000)), 40, false);
    EXPECT_EQ(bench.seen(), "H40@0");
    std::set<int32_t> first;
    for (int i = 0; i < 5; ++i) {
        bench.engine.load(session_of(std::vector<int32_t>(1000, 1'000)), any_index, false);
        first.insert(bench.engine.snapshot().index);
    }
    EXPECT_GT(first.size(), 1u) << "the first one is drawn too";
}

} // namespace

} // namespace vantro::service::playback
