// vantro-mpris between a bus and a service, both real.
#include "tests/bridges/mpris/session_bus.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <memory>

#include <vantro/vantro.hpp>

#include "tests/support/music.h"

namespace vantro::mpris {
namespace {

constexpr const char *path = "/org/mpris/MediaPlayer2";
constexpr const char *properties = "org.freedesktop.DBus.Properties";
constexpr const char *player_interface = "org.mpris.MediaPlayer2.Player";
constexpr const char *track_list = "org.mpris.MediaPlayer2.TrackList";
constexpr const char *playlists = "org.mpris.MediaPlayer2.Playlists";
constexpr const char *main_name = "org.mpris.MediaPlayer2.vantro.main";
const std::string no_track = "/org/mpris/MediaPlayer2/TrackList/NoTrack";

class Mpris : public test::RuntimeDirectory {
  protected:
    void SetUp() override {
        test::RuntimeDirectory::SetUp();
        const std::filesystem::path music = path_ + "/music";
        // A bus refuses U+FDD0, which is no character.
        test::make_music(
            music / "1.flac", 60'000,
            {"TITLE=One\xEF\xB7\x90", "TRACKNUMBER=1", "ARTIST=Anna", "ALBUMARTIST=All"});
        test::make_music(music / "a b.ogg", 60'000, {"TITLE=Two", "TRACKNUMBER=2"});
        test::write_file(music / "twice.m3u", "1.flac\n1.flac\na b.ogg\n");
        bus_ = std::make_unique<SessionBus>();
        start_service();
    }

    void start_service(int tracks = 2) {
        service_ = std::make_unique<test::Process>(
            std::vector<std::string>{VANTROD, "--audio", "clock", "--music", path_ + "/music",
                                     "--player", "main", "--player", "the den"});
        const std::string scanned = fmt::format("scanned ({} tracks)", tracks);
        while (service_->line().find(scanned) == std::string::npos) {
            ASSERT_FALSE(service_->ended());
        }
    }
    // Returns when the player is on the bus.
    void start_bridge() {
        bridge_ = std::make_unique<test::Process>(std::vector<std::string>{VANTRO_MPRIS});
        bus_->wait_for_name(main_name, true);
    }
    // Loads the playlist as another client does. @return that client.
    static Player load() {
        Player player = Player::connect("main").or_throw();
        player.create_session(1, playlist_id(player).c_str()).or_throw();
        return player;
    }
    static std::string playlist_id(Player &player) {
        for (const MediaNode &node : player.browse(1, "playlists")) {
            return node.id;
        }
        return {};
    }

    std::string get(const char *name, const char *interface = player_interface) {
        return bus_->call(main_name, path, properties, "Get", "ss", interface, name);
    }
    template <typename Value>
    std::string set(const char *name, const char *type, Value value) {
        return bus_->call(main_name, path, properties, "Set", "ssv", player_interface, name, type,
                          value);
    }
    template <typename... Arguments>
    std::string tell(const char *method, const char *types = "", Arguments... arguments) {
        return bus_->call(main_name, path, player_interface, method, types, arguments...);
    }
    std::vector<std::string> seeks() {
        std::vector<std::string> all = bus_->take_signals();
        std::erase_if(all, [](const std::string &each) { return !each.starts_with("Seeked"); });
        return all;
    }
    std::string path_of_current() {
        const std::string song = get("Metadata");
        const size_t begin = song.find('/');
        return song.substr(begin, song.find(',', begin) - begin);
    }
    int64_t position_us() { return std::stoll(get("Position")); }

    std::unique_ptr<SessionBus> bus_;
    std::unique_ptr<test::Process> service_;
    std::unique_ptr<test::Process> bridge_;
};

TEST_F(Mpris, ShowsWhatIsLoadedAtFirstSightAndSaysWhatChanges) {
    test::write_file(path_ + "/music/cover.png", // 1 x 1; only its head is read
                     std::string("\x89PNG\r\n\x1A\n\0\0\0\rIHDR\0\0\0\1\0\0\0\1\b\0\0\0\0", 29));
    service_.reset();
    start_service();
    Player other = load();
    start_bridge();
    EXPECT_EQ(get("PlaybackStatus"), "Paused");
    const std::string loaded = get("Metadata");
    for (const char *part :
         {"mpris:trackid /org/vantro/track/", "mpris:length 60000000",
          "xesam:title One\xEF\xBF\xBD", "xesam:artist [Anna]", "xesam:albumArtist [All]",
          "xesam:trackNumber 1", "/music/1.flac", "mpris:artUrl file://"}) {
        EXPECT_NE(loaded.find(part), std::string::npos) << part << " in " << loaded;
    }
    bus_->take_signals();
    tell("PlayPause");
    EXPECT_EQ(bus_->next_signal(),
              "PropertiesChanged: org.mpris.MediaPlayer2.Player, {PlaybackStatus Playing}, []");
    for (const int64_t begin = position_us(); position_us() == begin;) {
    }
    tell("PlayPause");
    EXPECT_EQ(bus_->take_signals().size(), 1u);
    EXPECT_EQ(position_us(), position_us());

    other.destroy_session(other.session().or_throw().tsid).or_throw();
    EXPECT_NE(
        bus_->next_signal().find("PlaybackStatus Stopped, Metadata {mpris:trackid " + no_track),
        std::string::npos);
    EXPECT_EQ(bridge_->readable(0), false);
}

TEST_F(Mpris, SetsModesAndRefusesWhatIsNone) {
    load();
    start_bridge();
    const struct {
        const char *name;
        double value;
        const char *changed;
    } numbers[] = {{"Rate", 1.1, "Rate 1.1"},  {"Volume", 0.25, "Volume 0.25"},
                   {"Volume", -3, "Volume 0"}, {"Volume", 7, "Volume 1"},
                   {"Rate", 99, nullptr},      {"Rate", -1, nullptr}};
    for (const auto &row : numbers) {
        bus_->take_signals();
        const std::string answer = set(row.name, "d", row.value);
        const std::vector<std::string> changes = bus_->take_signals();
        if (row.changed) {
            EXPECT_EQ(changes,
                      std::vector<std::string>{fmt::format("PropertiesChanged: {}, {{{}}}, []",
                                                           player_interface, row.changed)});
            EXPECT_EQ(get(row.name),
                      std::string(row.changed).substr(row.changed[0] == 'R' ? 5 : 7));
        } else {
            EXPECT_EQ(answer, SD_BUS_ERROR_INVALID_ARGS);
            EXPECT_TRUE(changes.empty());
        }
    }
    EXPECT_EQ(set("LoopStatus", "s", "Track"), "");
    EXPECT_EQ(get("LoopStatus"), "Track");
    EXPECT_EQ(set("LoopStatus", "s", "Often"), SD_BUS_ERROR_INVALID_ARGS);
    EXPECT_EQ(set("Shuffle", "b", 1), "");
    EXPECT_EQ(get("Shuffle"), "1");
    EXPECT_EQ(tell("OpenUri", "s", "file:///a"), SD_BUS_ERROR_NOT_SUPPORTED);

    // If another client mutes the player, its volume here is 0; setting a volume unmutes it.
    Player other = Player::connect("main").or_throw();
    bus_->take_signals();
    other.set_muted(true).or_throw();
    EXPECT_NE(bus_->next_signal().find("{Volume 0}"), std::string::npos);
    set("Volume", "d", 0.5);
    EXPECT_EQ(other.volume().or_throw().muted, 0);
    EXPECT_EQ(get("Volume"), "0.5");
}

TEST_F(Mpris, TellsEveryJumpOnceAndNothingElse) {
    Player other = load();
    start_bridge();
    const std::string id = path_of_current();
    seeks();
    const auto jumps = [&](const std::string &what, size_t count) {
        EXPECT_EQ(seeks().size(), count) << what;
    };
    for (const bool playing : {false, true}) {
        tell(playing ? "Play" : "Pause");
        jumps("play or pause", 0);
        tell("Seek", "x", int64_t{10'000'000});
        jumps("seek", 1);
        EXPECT_GE(position_us(), 10'000'000);
        tell("Seek", "x", int64_t{-100'000'000});
        jumps("to the start", 1);
        tell("SetPosition", "ox", id.c_str(), int64_t{20'000'000});
        jumps("to a position", 1);
        tell("SetPosition", "ox", id.c_str(), int64_t{61'000'000});
        tell("SetPosition", "ox", "/another", int64_t{1});
        jumps("outside of the track, or for another one", 0);
        other.seek(Player::Milliseconds(40'000)).or_throw();
        EXPECT_EQ(bus_->next_signal().substr(0, 10), "Seeked: 40");
        tell("Seek", "x", int64_t{30'000'000}); // beyond the end: the next track
        EXPECT_NE(get("Metadata").find(id.substr(0, id.size() - 1) + "1"), std::string::npos);
        tell("Next");
        tell("Previous");
        jumps("another track", 0);
        other.jump(0).or_throw();
        while (bus_->next_signal().find(id) == std::string::npos) {
        }
        jumps("another track by another client", 0);
    }
    tell("Seek", "x", int64_t{5'000'000});
    seeks();
    tell("Stop");
    EXPECT_EQ(get("PlaybackStatus"), "Stopped");
    EXPECT_EQ(path_of_current(), id);
    EXPECT_EQ(position_us(), 0);
    jumps("stop", 0);
}

TEST_F(Mpris, TheSameSongTwiceIsTwoTracks) {
    start_bridge();
    const auto list = [&](const char *method, const char *types, auto... arguments) {
        return bus_->call(main_name, path, playlists, method, types, arguments...);
    };
    EXPECT_EQ(get("PlaylistCount", playlists), "1");
    const std::string all = list("GetPlaylists", "uusb", 0, 10, "Alphabetical", 0);
    const std::string playlist = all.substr(1, all.find(',') - 1);
    EXPECT_EQ(all, fmt::format("[{}, twice, ]", playlist));
    EXPECT_EQ(list("GetPlaylists", "uusb", 1, 10, "Alphabetical", 0), "[]");
    EXPECT_EQ(list("ActivatePlaylist", "o", "/nothing"), SD_BUS_ERROR_INVALID_ARGS);
    EXPECT_EQ(get("ActivePlaylist", playlists), "0, /, , ");
    EXPECT_EQ(list("ActivatePlaylist", "o", playlist.c_str()), "");
    EXPECT_EQ(get("ActivePlaylist", playlists), fmt::format("1, {}, twice, ", playlist));
    EXPECT_EQ(get("PlaybackStatus"), "Playing");

    const std::string first = path_of_current();
    std::string second = first;
    second.back() = '1';
    std::string third = first;
    third.back() = '2';
    EXPECT_EQ(get("Tracks", track_list), fmt::format("[{}, {}, {}]", first, second, third));
    const std::string songs = bus_->call(main_name, path, track_list, "GetTracksMetadata", "ao", 3,
                                         third.c_str(), second.c_str(), "/another");
    EXPECT_EQ(songs.find("{mpris:trackid " + third), 1u) << songs;
    EXPECT_LT(songs.find("Two"), songs.find("{mpris:trackid " + second));
    EXPECT_EQ(songs.find("/another"), std::string::npos);
    bus_->take_signals();
    EXPECT_EQ(bus_->call(main_name, path, track_list, "GoTo", "o", second.c_str()), "");
    EXPECT_EQ(path_of_current(), second);
    const std::vector<std::string> changes = bus_->take_signals();
    ASSERT_EQ(changes.size(), 1u);
    EXPECT_NE(changes[0].find("{Metadata {mpris:trackid " + second), std::string::npos);
    EXPECT_NE(changes[0].find("CanGoPrevious 1}, []"), std::string::npos) << changes[0];
}

TEST_F(Mpris, OutlivesTheServiceAndEndsByASignalOrWithTheBus) {
    start_bridge();
    const char *den = "org.mpris.MediaPlayer2.vantro.the-20den";
    bus_->wait_for_name(den, true);
    for (const int number : {SIGKILL, SIGTERM}) {
        service_->kill(number);
        bus_->wait_for_name(main_name, false);
        bus_->wait_for_name(den, false);
        service_->wait();
        start_service();
        bus_->wait_for_name(main_name, true);
        bus_->wait_for_name(den, true);
        EXPECT_EQ(tell("Play"), "");
        EXPECT_EQ(get("PlaybackStatus"), "Playing");
    }
    test::Process another({VANTRO_MPRIS, "--player", "main"});
    EXPECT_NE(another.rest().find("has another owner"), std::string::npos);
    EXPECT_EQ(another.wait(), 1);
    test::Process unknown({VANTRO_MPRIS, "--player", "nobody"});
    EXPECT_NE(unknown.line().find("vantro-mpris: nobody: "), std::string::npos);
    unknown.kill(SIGTERM);
    EXPECT_EQ(unknown.wait(), 0);
    bus_.reset();
    EXPECT_EQ(bridge_->wait(), 1);
    test::Process without({VANTRO_MPRIS});
    EXPECT_NE(without.rest().find("session bus"), std::string::npos);
    EXPECT_EQ(without.wait(), 1);
}

// A bus closes the connection of a program that sends text that is not UTF-8.
TEST_F(Mpris, NamesOfAnyBytesReachTheBus) {
    std::string low, high;
    for (int byte = 1; byte < 256; ++byte) {
        (byte < 128 ? low : high) += byte == '/' ? "" : std::string(1, static_cast<char>(byte));
    }
    const std::filesystem::path plain = path_ + "/plain.ogg";
    test::make_music(plain, 1'000);
    for (const std::string &name : {low, high}) {
        std::filesystem::copy(plain, path_ + "/music/" + name + ".ogg");
    }
    service_.reset();
    start_service(4);
    Player::connect("main").or_throw().create_session(1, "songs").or_throw();
    start_bridge();
    std::string all;
    for (int track = 0; track < 4; ++track) {
        all += get("Metadata") + '\n';
        tell("Next");
    }
    EXPECT_NE(all.find("/music/%01%02%03%04%05%06%07%08%09%0A%0B"), std::string::npos) << all;
    EXPECT_NE(all.find("xesam:title \xEF\xBF\xBD"), std::string::npos) << all;
}

// A call that has reached the bridge's connection, but was not read when the bridge learns that the
// service has ended, or is told to end itself.
TEST_F(Mpris, AnswersEveryCallWithAReasonWhenAPlayerLeaves) {
    start_bridge();
    std::string answer;
    const auto read = [](sd_bus_message *message, void *text, sd_bus_error *) {
        const sd_bus_error *error = sd_bus_message_get_error(message);
        *static_cast<std::string *>(text) = error ? error->message : words_of(message);
        return 0;
    };
    const struct {
        std::function<void()> end;
        const char *said;
    } ends[] = {{[this] {
                     service_->kill(SIGKILL);
                     service_->wait();
                 },
                 "the service "}, // has ended, or is gone
                {[this] { bridge_->kill(SIGTERM); }, "vantro-mpris has ended"}};
    for (const auto &[end, said] : ends) {
        bus_->wait_for_name(main_name, true);
        bridge_->stop();
        answer.clear();
        sd_bus_call_method_async(bus_->bus(), nullptr, main_name, path, player_interface, "Play",
                                 read, &answer, "");
        sd_bus_flush(bus_->bus());
        bus_->call("org.freedesktop.DBus", "/", "org.freedesktop.DBus", "GetId", ""); // delivered
        end();
        bridge_->kill(SIGCONT);
        while (answer.empty()) {
            bus_->take_signals();
            sd_bus_wait(bus_->bus(), 100'000);
        }
        EXPECT_NE(answer.find(said), std::string::npos) << answer;
        bus_->wait_for_name(main_name, false);
        service_.reset();
        start_service();
    }
}

class Playerctl : public Mpris {
  protected:
    void SetUp() override {
        if (access(program, X_OK) != 0) {
            GTEST_SKIP() << "playerctl is not installed";
        }
        Mpris::SetUp();
        load();
        start_bridge();
    }
    static std::string run(const std::string &line) {
        test::Process tool({"/bin/sh", "-c", fmt::format("{} {}", program, line)});
        std::string said = tool.rest();
        return said + (tool.wait() == 0 ? "" : "(failed)");
    }
    static constexpr const char *program = "/usr/bin/playerctl";
};

TEST_F(Playerctl, DrivesThePlayerByEachOfItsCommands) {
    bus_->wait_for_name("org.mpris.MediaPlayer2.vantro.the-20den", true);
    const char *const lines[][2] = {
        {"status", "Paused\n"},
        {"metadata title", "One\xEF\xBF\xBD\n"},
        {"metadata -f '{{playerName}}: {{artist}}, {{duration(mpris:length)}}'",
         "vantro: Anna, 1:00\n"},
        {"play", ""},
        {"status", "Playing\n"},
        {"play-pause", ""},
        {"status", "Paused\n"},
        {"position 20", ""},
        {"position", "20.000000\n"},
        {"position 5+", ""},
        {"position 15-", ""},
        {"position", "10.000000\n"},
        {"volume 0.5", ""},
        {"volume 0.25+", ""},
        {"volume", "0.750000\n"},
        {"loop", "None\n"},
        {"loop Playlist", ""},
        {"loop", "Playlist\n"},
        {"shuffle", "Off\n"},
        {"shuffle Toggle", ""},
        {"shuffle", "On\n"},
        {"shuffle Off", ""},
        {"next", ""},
        {"next", ""},
        {"metadata title", "Two\n"},
        {"previous", ""},
        {"metadata xesam:trackNumber", "1\n"},
        {"pause", ""},
        {"status", "Paused\n"},
        {"stop", ""},
        {"status", "Stopped\n"},
        {"--list-all", "vantro.main\nvantro.the-20den\n"},
        {"--all-players status", "Stopped\nStopped\n"},
        {"-i vantro.the-20den --all-players status", "Stopped\n"},
    };
    std::string driven = "open ";
    for (const auto &[line, said] : lines) {
        const bool all = std::string_view(line).find('-') < 3;
        EXPECT_EQ(run(fmt::format("{}{}", all ? "" : "-p vantro.main ", line)), said) << line;
        driven += std::string(line).substr(0, std::string_view(line).find(' ')) + ' ';
    }
    EXPECT_NE(run("-p vantro.main open file:///a.flac").find("(failed)"), std::string::npos);
    // Lines such as "  play                    Command the player to play".
    const std::string help = run("--help");
    for (size_t at = help.find("Commands:"); (at = help.find("\n  ", at)) != help.npos; ++at) {
        const size_t end = help.find(' ', at + 3);
        if (end > at + 3) {
            EXPECT_NE(driven.find(help.substr(at + 3, end - at - 3) + ' '), std::string::npos)
                << help.substr(at, 40);
        }
    }
}

TEST_F(Playerctl, FollowsThePlayerOverARestartOfTheService) {
    test::Process status({program, "-p", "vantro.main", "--follow", "status"});
    test::Process title({program, "-p", "vantro.main", "-F", "metadata", "title"});
    EXPECT_EQ(status.line(), "Paused");
    EXPECT_EQ(title.line(), "One\xEF\xBF\xBD");
    EXPECT_EQ(tell("Play"), "");
    EXPECT_EQ(status.line(), "Playing");
    EXPECT_EQ(tell("Next"), "");
    EXPECT_EQ(tell("Next"), "");
    EXPECT_EQ(title.line(), "Two");
    service_->kill(SIGKILL);
    service_->wait();
    EXPECT_EQ(status.line(), ""); // there is no player
    start_service();
    EXPECT_NE(status.line(), "");
}

// A service that ends during a request.
TEST_F(Playerctl, IsToldWhenTheServiceEndsInTheMiddleOfACall) {
    for (const char *line :
         {"play", "pause", "play-pause", "stop", "next", "previous", "position 5", "volume 0.5",
          "loop Track", "shuffle On", "position", "metadata", "open file:///a.flac"}) {
        SCOPED_TRACE(line);
        service_->stop();
        test::Process tool(
            {"/bin/sh", "-c", fmt::format("exec {} -p vantro.main {}", program, line)});
        tool.readable(100); // commands that need no service are answered at once
        service_->kill(SIGKILL);
        service_->wait();
        tool.rest();
        EXPECT_GE(tool.wait(), 0);
        bus_->wait_for_name(main_name, false);
        start_service();
        bus_->wait_for_name(main_name, true);
        EXPECT_EQ(tell("Pause"), "");
    }
}

} // namespace
} // namespace vantro::mpris
