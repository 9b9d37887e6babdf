// The configuration file: which values are used, which errors are reported, and reading it again.
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <thread>

#include "tests/service/vantrod.h"

namespace vantro::service {

namespace {

class Config : public Vantrod {
  protected:
    void SetUp() override {
        Vantrod::SetUp();
        file_ = path_ + "/vantrod.toml";
    }
    // What the program prints, and how it ends.
    std::string run(std::vector<std::string> arguments, int expected = 0) {
        arguments.insert(arguments.begin(), VANTROD);
        test::Process program(arguments);
        std::string all;
        for (std::string line; !(line = program.line()).empty();) {
            all += line + '\n';
        }
        EXPECT_EQ(program.wait(), expected) << all;
        return all;
    }
    // The line of --check-config about a key.
    std::string setting(const std::string &key, std::vector<std::string> arguments) {
        arguments.emplace_back("--check-config");
        std::istringstream lines(run(arguments));
        for (std::string line; std::getline(lines, line);) {
            const size_t at = line.front() == '#' ? 1 : 0;
            if (line.compare(at, key.size() + 1, key + ' ') == 0) {
                return line;
            }
        }
        return "";
    }

    std::string file_;
};

TEST_F(Config, EveryMistakeNamesItsLineAndKey) {
    const struct {
        const char *text;
        const char *error;
    } rows[] = {
        {"\n# mine\nvolume = 3", ":3: volume: there is no such key"},
        {"perms = 999", ":1: perms: '999' is not"},
        {"perms = [600]", ":1: perms: it takes one value"},
        {"perms = 0x1b0", ":1: perms: '0x1b0' is not"},
        {"threads = 0o10", ":1: threads: '0o10' is not a number"},
        {"threads = \"x\"", ":1: threads: 'x' is not a number"},
        {"threads = 2.5", ":1: threads: '2.5' is not a number"},
        {"music = [\n\"a\",", ":2: "},
        {"music = [[\"a\"]]", ":1: music: a list within a list"},
        {"music = 1979-05-27", ":1: music: a date or time"},
        {"[audio]\n", ":1: audio: tables are not allowed"},
        {"[[music]]\npath = \"a\"", ":1: music: tables are not allowed"},
        {"music = a", ":1: Error while parsing value: could not determine value type; texts need"},
        {"audio = \"loud\"", ":1: audio: 'loud' is not one of auto, mpv, clock"},
        {"audio = \"mpv", ":1: "},
        {"player = [\n\"a\",\n\"a\"]", ":1: player: 'a' is named twice"},
        {"audio-device = \"den=null\"", ":1: audio-device: 'den=null' is for player 'den', "},
        {"player = [\"a\", \"b\"]\naudio-device = [\"jack\", \"a=null\"]\nthreads = 0", ":3: "},
        {"player = [\"a\", \"b\"]\naudio-device = \"jack\"",
         ":2: audio-device: players 'a' and 'b' "},
        {"player = [\"a\", \"b\"]\naudio-device = [\"a=sdl/x\", \"b=alsa,sdl/y\"]",
         ":2: audio-device: pl"},
        {"state = \"\"", ":1: state: '' is not the name of a directory"},
        {"volume-limit = [60, 70]", ":1: volume-limit: '70' is a second one"},
        {"volume-limit = 101", ":1: volume-limit: '101' is not a number from 0 to 100"},
        {"volume-limit = \"den=50\"", ":1: volume-limit: 'den=50' is for player 'den', "},
        {"volume-limit = \"main=\"", ":1: volume-limit: 'main=' is not a number"},
        {"perms = 600\nrequire = \"net\"", ": --"},
        {"perms = 600\nperms = 660", ":2: "},
        {"nonsense", ":1: "},
        {"a\xFF = 1", ":1: "},
        {"list-audio-devices = true", ":1: list-audio-devices: there is no such key"},
        {"config = \"x\"", ":1: config: there is no such key"},
    };
    for (const auto &row : rows) {
        test::write_file(file_, row.text);
        const std::string said = run({"--config", file_}, 2);
        EXPECT_EQ(said.rfind("vantrod: " + file_ + row.error, 0) == 0 ||
                      (std::string(row.error) == ": --" && said.find("excludes") != said.npos),
                  true)
            << row.text << "\n"
            << said;
        EXPECT_EQ(run({"--config", file_, "--version"}).rfind("vantrod ", 0), 0u);
    }
    for (const char *const text : {"# mine\nmusic = \"~/Music\"", "\nmusic = [\"/\", \"/\"]",
                                   "# mine\nmedia-root = \"/nowhere\""}) {
        test::write_file(file_, text);
        const std::string said = run({"--config", file_, "--check-config"}, 1);
        EXPECT_EQ(said.rfind("vantrod: " + file_ + ":2: m", 0), 0u) << said;
        EXPECT_EQ(run({"--config", file_}, 1), said);
    }
    for (const std::string &path : {path_ + "/none", path_}) {
        EXPECT_EQ(run({"--config", path}, 2).rfind("vantrod: --config: cannot read '" + path, 0),
                  0u);
    }
}

TEST_F(Config, TheCommandLineWinsAndAllOfItComesBack) {
    test::write_file(file_, "player = [\"a \\\"b\\\"\", 'c\\d']\nperms = 0o660\nthreads = 3\n"
                            "replaygain = \"album\"\naudio-device = \"null\"\nuid = 5\n");
    EXPECT_EQ(setting("perms", {"--config", file_}), "perms = 660  # " + file_ + ":2");
    EXPECT_EQ(setting("threads", {"--config", file_, "--threads", "9"}),
              "threads = 9  # command line");
    EXPECT_EQ(setting("player", {"--config", file_, "--player", "x"}),
              "player = [\"x\"]  # command line");
    EXPECT_EQ(setting("gid", {"--config", file_}), "#gid  # default");
    EXPECT_EQ(setting("perms", {"--config", file_, "--require", "net"}), "#perms  # default");
    EXPECT_NE(run({"--config", file_, "--check-config", "--music", "/nowhere"}, 1).find("/nowhere"),
              std::string::npos);

    // What is printed is a file that says the same.
    const std::string printed = run({"--config", file_, "--gid", "7", "--print-config"});
    const std::string again = path_ + "/again.toml";
    std::filesystem::create_directories(path_ + "/config/vantro");
    test::write_file(again, printed);
    EXPECT_EQ(run({"--config", again, "--print-config"}), printed);
    test::write_file(path_ + "/config/vantro/vantrod.toml", printed); // found by itself
    EXPECT_EQ(run({"--print-config"}), printed);
    EXPECT_EQ(setting("gid", {"--config", "/dev/null"}), "#gid  # default");

    // The reference has every key, and no other.
    std::set<std::string> keys, described;
    std::istringstream lines(run({"--config", "/dev/null", "--check-config"}));
    for (std::string line; std::getline(lines, line);) {
        keys.insert(line.substr(1, line.find(' ') - 1));
    }
    std::ifstream reference(CONFIGURATION_REFERENCE);
    for (std::string line; std::getline(reference, line);) {
        std::istringstream cell(line.rfind("| `", 0) == 0 ? line.substr(2, line.find('|', 2) - 2)
                                                          : "");
        for (std::string word; std::getline(cell, word, '`');) {
            if (!word.empty() && word.find_first_of(" ,") == std::string::npos) {
                described.insert(word);
            }
        }
    }
    EXPECT_EQ(described, keys);
}

// The songs of all sources, by name. Repeats the request until they are `wanted`, for 20 s at most.
std::vector<std::string> songs_of(VantroHandle *handle, const Client &client,
                                  const std::vector<std::string> &wanted) {
    std::vector<std::string> songs;
    for (int i = 0; i < 2000 && songs != wanted; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        MediaSource *all = nullptr;
        int count = 0;
        EXPECT_EQ(vantro_get_media_sources(handle, &all, &count), 0);
        songs.clear();
        for (int k = 0; k < count; ++k) {
            for (const auto &[name, id] : client.list(browse(all[k].id, "songs"))) {
                songs.push_back(name);
            }
        }
        vantro_free_media_sources(all, count);
        std::sort(songs.begin(), songs.end());
    }
    return songs;
}

// Plays on a player, and waits until a track of it is published.
void play_and_wait_for_a_track(const char *player) {
    VantroHandle *const handle = vantro_connect();
    ASSERT_EQ(vantro_open(handle, player), 0);
    EXPECT_EQ(vantro_play(handle), 0);
    for (bool published = false; !published;) {
        ASSERT_GT(vantro_event_wait_for(handle, 20'000), 0);
        const VantroEvent *event = vantro_event_get(handle);
        published = event && event->object_name && std::string(event->object_name) == "track";
    }
    vantro_disconnect(handle);
}

TEST_F(Config, IsReadAgainAtSighup) {
    const std::string music = path_ + "/music";
    test::make_music(music + "/1.flac", 100, {"TITLE=One"});
    test::write_file(file_, "music = \"" + music + "\"\naudio-device = \"main=jack\"\n");
    start({"--config", file_});
    ASSERT_EQ(told(), "vantrod: ready (0 tracks, players: main)");
    ASSERT_EQ(told(), "vantrod: scanned (1 tracks)");
    const std::string one = "music = \"" + music + "\"\n", two = path_ + "/two";
    test::make_music(two + "/2.flac", 100, {"TITLE=Two"});
    const struct {
        std::string text, logged;
        std::vector<std::string> songs; // of all sources, afterwards
        int players = 1;
    } rows[] = {
        {one + "threads = 3\n", ":2: threads has changed", {"One"}},
        {one + "playr = 1\n", "stays as it was: " + file_ + ":2: playr", {"One"}},
        {"music = [\"" + music + "\", \"/nowhere\"]",
         "stays as it was: " + file_ + ":1: music: ",
         {"One"}},
        {one +
             "player = [\"main\", \"x\"]\naudio-device = \"x=jack\"\n", // main has it till the end
         "\"x\" cannot be added: players 'main' and 'x' cannot both use jack",
         {"One"}},
        {"music = [\"" + music + "\", \"" + two + "\"]\nplayer = [\"x\", \"main\"]\n",
         "player \"x\" was added",
         {"One", "Two"},
         2},
        {"music = \"" + two + "\"\n", "player \"x\" is left out", {"Two"}, 2},
        {"media-root = \"" + path_ + "\"\nplayer = [\"main\", \"x\"]\n",
         "music is scanned again",
         {"One", "Two"},
         2},
        {one + "log-level = \"error\"\n", "is left out", {"One"}, 2},
        {"perms = 9\n", "stays as it was: " + file_ + ":1: perms", {"One"}, 2}, // all the same
    };
    const std::string open_x = request(VANTRO_COMMAND_OPEN, name("x"));
    VantroHandle *const handle = vantro_connect_timed(20'000);
    ASSERT_EQ(vantro_open(handle, "main"), 0);
    for (const auto &row : rows) {
        test::write_file(file_, row.text);
        service->kill(SIGHUP);
        std::string line;
        do {
            ASSERT_TRUE(service->readable(20'000)) << row.logged;
            line = service->line();
        } while (line.find(row.logged) == std::string::npos);
        const Client client;
        ASSERT_EQ(client.result(row.players == 2 ? open_x : open_main), 0);
        EXPECT_EQ(songs_of(handle, client, row.songs), row.songs) << row.text;
        EXPECT_EQ(client.ask(players).substr(4, 4), bytes(row.players)) << row.text;
    }
    play_and_wait_for_a_track("x");
    vantro_disconnect(handle);
}

TEST_F(Config, NoPlayerIsLouderThanItsLimit) {
    const std::string players = "player = [\"main\", \"a=b\"]\n";
    struct Row {
        std::string file;
        int asked; // 0: nothing
        int level, level_of_other;
    };
    const Row rows[] = {
        {"volume-limit = [60, \"a=b=90\"]\n", 80, 60, 90},
        {"volume-limit = 70\n", 0, 60, 70}, // a volume that was lowered stays so
        {"volume-limit = [\"main=20\"]\n", 0, 20, 70},
        {"volume-limit = [\"main=20\", 101]\n", 0, 20, 70}, // as it was
        {"", 95, 95, 70},
    };
    test::write_file(file_, players + rows[0].file);
    start({"--config", file_});
    ASSERT_EQ(told(), "vantrod: ready (0 tracks, players: main, a=b)");
    VantroHandle *const main = vantro_connect_timed(20'000);
    VantroHandle *const other = vantro_connect_timed(20'000);
    ASSERT_EQ(vantro_open(main, "main"), 0);
    ASSERT_EQ(vantro_open(other, "a=b"), 0);
    for (const Row &row : rows) {
        if (&row != rows) {
            test::write_file(file_, players + row.file);
            service->kill(SIGHUP);
            std::string line;
            do {
                ASSERT_TRUE(service->readable(20'000));
                line = service->line();
            } while (line.find("music is scanned again") == line.npos &&
                     line.find("stays as it was") == line.npos);
        }
        // The line is written when the new values are in effect.
        VantroVolume volume = {}, volume_of_other = {};
        if (row.asked != 0) {
            ASSERT_EQ(vantro_set_volume(main, row.asked), 0);
        }
        ASSERT_EQ(vantro_get_volume(main, &volume), 0);
        ASSERT_EQ(vantro_get_volume(other, &volume_of_other), 0);
        EXPECT_EQ(volume.level, row.level) << row.file;
        EXPECT_EQ(volume_of_other.level, row.level_of_other) << row.file;
    }
    vantro_disconnect(main);
    vantro_disconnect(other);

    // The volume that was saved is above a new limit.
    service->kill(SIGTERM);
    ASSERT_EQ(service->wait(), 0);
    start({"--config", file_, "--volume-limit", "main=50"});
    ASSERT_EQ(told(), "vantrod: ready (0 tracks, players: main, a=b)");
    VantroVolume volume = {};
    VantroHandle *const again = vantro_connect_timed(20'000);
    ASSERT_EQ(vantro_open(again, "main"), 0);
    ASSERT_EQ(vantro_get_volume(again, &volume), 0);
    EXPECT_EQ(volume.level, 50);
    vantro_disconnect(again);
}

} // namespace

} // namespace vantro::service
