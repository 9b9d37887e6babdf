// What vantrod publishes, as an application on the library sees it: the service is a process of its
// own, with files made by the test.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <optional>
#include <sstream>

#include <vantro/catalogue.h>
#include <vantro/extras.h>

#include "tests/support/music.h"
#include "tests/support/player_follower.h"
#include "tests/support/process.h"

namespace vantro::service::publishing {

namespace {

using Words = std::vector<std::string>;
using Picture = std::map<std::string, std::string>; // the state of each object

// An application that follows a player, and gives it commands.
struct Follower {
    Follower() : handle(vantro_connect()) { EXPECT_EQ(vantro_open(handle, "main"), 0); }
    ~Follower() { vantro_disconnect(handle); }
    Follower(const Follower &) = delete;
    Follower &operator=(const Follower &) = delete;

    static void note(Picture &picture, const VantroEvent &event) {
        const std::string text = events::told(&event).substr(2); // the text after the type
        picture[event.object_name] = text.substr(
            0, std::min(text.find(" was "), std::min(text.find(" {"), text.find(" error "))));
    }

    // The next event in words; "7" if there is none.
    std::string next() {
        const VantroEvent *event = vantro_event_get(handle);
        if (event && event->object_name && event->type != VANTRO_EVENT_MEDIASOURCE) {
            note(seen, *event);
        }
        if (event && event->state == VANTRO_STATE_IDLE) { // the ends of waits are no events
            for (const char *object : {"trksession", "track", "status"}) {
                seen.erase(object);
            }
        }
        return events::told(event);
    }

    // All events so far. Positions come once a second; only new ones are kept.
    Words all() {
        Words found;
        for (std::string text, position; text != "7" && text != "failed"; found.push_back(text)) {
            do {
                position = seen["status"];
                text = next();
            } while (text.rfind("6 ", 0) == 0 && seen["status"] == position);
        }
        return found;
    }

    // Waits for an event that begins with `wanted`, and returns the events of `types` that came.
    Words until(const std::string &wanted, const std::string &types) {
        Words found;
        for (std::string text; text.rfind(wanted, 0) != 0;) {
            text = next();
            if (text == "7" && vantro_event_wait(handle) != 0) {
                text = "failed";
            }
            if (types.find(text[0]) != types.npos && text != "7") {
                found.push_back(text.substr(0, text.find(" was ")));
            }
            if (text == "failed" && wanted != text) {
                ADD_FAILURE() << "no " << wanted << ": " << std::strerror(errno);
            }
            if (text == "failed") {
                break;
            }
        }
        return found;
    }

    // What the queries answer, in the words of events.
    Picture asked() const {
        VantroStateInfo *state = nullptr;
        EXPECT_EQ(vantro_get_current_state(handle, &state), 0);
        Picture answers = {{"state", fmt::format("state {}/{}/{}/{}", state->state, state->rate,
                                                 state->repeat, state->shuffle)}};
        std::free(state);
        VantroTrackInfo *track = nullptr;
        if (vantro_get_current_track_info(handle, &track) != 0) {
            return answers;
        }
        VantroEvent event = {};
        event.type = VANTRO_EVENT_TRACK;
        event.object_name = "track";
        event.details.track = {track->index, track->tsid, track->media_node, track->metadata};
        note(answers, event);
        vantro_free_track_info(track);
        VantroTrksessionInfo *session = nullptr;
        EXPECT_EQ(vantro_get_current_trksession_info(handle, &session), 0);
        answers["trksession"] =
            fmt::format("trksession {} {} {}", session->type, session->length, session->tsid);
        std::free(session);
        int32_t position = -1;
        EXPECT_EQ(vantro_get_current_track_position(handle, &position), 0);
        answers["status"] = fmt::format("status {}", position);
        return answers;
    }

    // After an answer, the events of its effects have come.
    void expect_agreement() {
        const Picture answers = asked();
        all();
        EXPECT_EQ(seen, answers);
    }

    void command(const std::string &words) const {
        std::istringstream all(words);
        for (std::string word; all >> word;) {
            const std::string name = word.substr(0, word.find('='));
            const float value = name == word ? 0 : std::stof(word.substr(name.size() + 1));
            const auto number = static_cast<int32_t>(value);
            uint64_t made = 0;
            EXPECT_EQ(name == "load"
                          ? vantro_create_trksession(handle, 1, "songs", &number, 0, &made)
                      : name == "destroy" ? vantro_destroy_trksession(handle, number)
                      : name == "play"    ? vantro_play(handle)
                      : name == "pause"   ? vantro_pause(handle)
                      : name == "stop"    ? vantro_stop(handle)
                      : name == "next"    ? vantro_next(handle)
                      : name == "jump"    ? vantro_jump(handle, number)
                      : name == "seek"    ? vantro_seek(handle, number)
                      : name == "rate"    ? vantro_set_playback_rate(handle, value)
                      : name == "repeat"  ? vantro_repeat(handle, number)
                                          : vantro_shuffle(handle, number),
                      0)
                << word;
        }
    }

    VantroHandle *const handle;
    Picture seen; // the state by the events so far
};

class Publishing : public test::RuntimeDirectory {
  protected:
    void SetUp() override {
        RuntimeDirectory::SetUp();
        for (const char *each : {"A", "B", "C"}) {
            test::make_music(file(each), 20'000,
                             {std::string("TITLE=") + each, "ARTIST=\\\"\xC3\xA9"});
        }
        start("scanned");
    }
    void TearDown() override {
        service->kill(SIGTERM);
        EXPECT_EQ(service->wait(), 0) << service->rest();
        RuntimeDirectory::TearDown();
    }
    std::filesystem::path file(const std::string &title) const {
        return path_ + "/music/" + title + ".flac";
    }
    void start(const char *line) {
        service.emplace(Words{VANTROD, "--music", path_ + "/music", "--audio", "clock"});
        for (std::string said = "-"; said.find(line) == said.npos; said = service->line()) {
            ASSERT_NE(said, "");
        }
    }
    std::optional<test::Process> service;
};

// The rate is so low that the position stands still while playing.
const std::pair<const char *, Words> commands[] = {
    {"rate=1e-6", {"3 state 1/1e-06/0/0 was 1/1/0/0"}},
    {"load=1", {"3 state 3/", "4 trksession 2 3 1", "5 track 1 1 node", "6 status 0"}},
    {"seek=1500", {"6 status 1500"}},
    {"play", {"3 state 2/"}},
    {"play", {}},
    // Only the newest position, after the track that came in between; the state before both.
    {"seek=5 jump=2 seek=6 seek=7", {"5 track 2", "6 status 7"}},
    {"next repeat=1", {"3 state 4/1e-06/0/0", "3 state 4/1e-06/1/0", "5 track 0", "6 status 0"}},
    {"play next next shuffle=1", {"3 state 2/", "3 state 2/1e-06/1/1", "5 track 2"}},
    {"seek=20 pause", {"3 state 3/", "6 status 20"}},
    {"stop", {"3 state 4/", "6 status 0"}},
    {"stop", {}},
    // Each session is reported, but only the last track and position; ends are not reported, and
    // drop those.
    {"load=0 load=2 seek=9",
     {"3 state 3/", "4 trksession 2 3 2", "4 trksession 2 3 3", "5 track 2 3", "6 status 9"}},
    {"seek=3 jump=1 destroy=3", {"3 state 1/"}},
    {"destroy=2", {}},
    {"shuffle=0 play",
     {"3 state 1/1e-06/1/0", "3 state 2/", "4 trksession 1 3 4", "5 track 0 4", "6 status 0"}},
};

TEST_F(Publishing, TellsWhatEachCommandDidAndTheQueriesAgree) {
    Follower follower;
    const Words first = follower.all();
    ASSERT_EQ(first.size(), 3u);
    EXPECT_EQ(first[0], "7 state 1/1/0/0 {rate=1,repeat=off,shuffle=off,status=idle}");
    const std::string uid = first[1].substr(14, 32);
    EXPECT_EQ(first[1],
              "2 mediasource." + uid + " 1 source 1 1 2 127 '" + uid + "' 'music' 'music'");
    for (const auto &[words, expected] : commands) {
        SCOPED_TRACE(words);
        follower.command(words);
        const Words found = follower.all();
        for (size_t i = 0; i < found.size(); i++) {
            EXPECT_EQ(found[i].rfind(i < expected.size() ? expected[i] : "7", 0), 0u) << found[i];
        }
        EXPECT_EQ(found.size(), expected.size() + 1);
        follower.expect_agreement();
    }
    // A later follower gets the same at once, with several states as one.
    Follower later;
    EXPECT_EQ(later.all().size(), 6u);
    EXPECT_EQ(later.seen, follower.seen);
}

TEST_F(Publishing, TellsWhatIsQueuedFirst) {
    Follower follower;
    follower.all();
    const auto expect = [&](const Words &expected) {
        for (const std::string &each : expected) {
            const std::string found = follower.next();
            EXPECT_EQ(found.rfind(each, 0), 0u) << found << ", not " << each;
        }
    };
    follower.command("load=0");
    expect({"3 state 3/1/0/0", "4 trksession"});
    follower.command("jump=2 shuffle=1");
    expect({"5 track 0", "6 status 0", "3 state 3/1/0/1", "5 track 2", "6 status 0", "7"});
}

TEST_F(Publishing, TellsWhatHappensByItself) {
    Follower follower;
    follower.command("load=0 play");
    follower.until("6 status 1", "");
    for (const char *following : {"5 track 1", "5 track 2"}) {
        follower.command("seek=19999");
        follower.until(following, "");
    }
    follower.command("seek=19999");
    EXPECT_EQ(follower.until("3 state 4", "35"), (Words{"3 state 4/1/0/0"}));
    follower.expect_agreement();

    // The tags of its file have changed, and the songs of the source.
    std::filesystem::remove(file("A"));
    test::make_music(file("A"), 20'000, {"TITLE=A", "ARTIST=Anna"});
    follower.until("2 mediasource.", "");
    while (follower.seen["track"].find("Anna") == std::string::npos) {
        follower.until("5 track 0", "");
    }
    follower.expect_agreement();
}

TEST_F(Publishing, PassesOverFilesThatCannotBePlayed) {
    Follower follower;
    follower.command("load=0 repeat=1 rate=1e-6 play");
    follower.all();
    // Of the same size and time, so that the catalogue does not notice the change.
    test::write_file(path_ + "/b", std::string(file_size(file("B")), 'b'));
    last_write_time(path_ + "/b", last_write_time(file("B")));
    std::filesystem::rename(path_ + "/b", file("B"));
    follower.command("next");
    EXPECT_EQ(follower.until("3 state 2", "13"),
              (Words{"1 state 4/1e-06/1/0 error 3", "3 state 2/1e-06/1/0"}));
    follower.command("stop");
    for (const char *each : {"A", "C"}) {
        std::filesystem::remove(file(each));
    }
    follower.command("play");
    const std::string gone = "1 state 4/1e-06/1/0 error 1", on = "3 state 2/1e-06/1/0";
    EXPECT_EQ(
        follower.until("1 state 4/1e-06/1/0 error 3", "13"),
        (Words{"3 state 4/1e-06/1/0", on, gone, on, gone, on, "1 state 4/1e-06/1/0 error 3"}));
    follower.until("5 track 2", "");
    EXPECT_EQ(follower.asked()["state"], "state 4/1e-06/1/0") << "all of them, and that is the end";
}

TEST_F(Publishing, EndsAndBeginsAgain) {
    for (const int signal : {SIGTERM, SIGKILL}) {
        Follower follower;
        follower.command("load=0");
        follower.all();
        follower.command("seek=5");
        service->kill(signal);
        service->wait();
        const Words last = follower.until("failed", "36f");
        EXPECT_EQ(last, signal == SIGTERM ? (Words{"3 state 0/1/0/0", "6 status 5", "failed"})
                                          : (Words{"6 status 5", "failed"}));
        EXPECT_EQ(errno, ESTALE);
        start("ready");
        EXPECT_EQ(follower.next(), "failed");
        EXPECT_EQ(errno, ESTALE);
    }
    EXPECT_EQ(Follower().next(), "3 state 3/1/0/0 was 1/1/0/0") << "as it was left, paused";
}

} // namespace

} // namespace vantro::service::publishing
