#include <algorithm>
#include <cerrno>
#include <cstring>

#include <vantro/catalogue.h>
#include <vantro/messaging.h>
#include <vantro/player.h>
#include <vantro/protocol.h>

#include "tests/tools/vantroctl/vantroctl_process.h"

namespace vantro::ctl {
namespace {

// How the service of a test behaves.
enum class Manner { deaf, silent, full, knows_no_player, refuses, scans, dies };

Manner manner;
int32_t refusal_result = EIO;

template <class... Parts>
int32_t reply(MsgOsb *open, MsgContext *context, const Parts &...parts) {
    std::string bytes;
    (bytes.append(reinterpret_cast<const char *>(&parts), sizeof parts), ...);
    return callout_reply(open, context, 0, bytes.data(), static_cast<int32_t>(bytes.size()));
}

// Answers like a service that has found a song and is still scanning.
int32_t answer_while_scanning(MsgOsb *open, MsgContext *context, uint16_t command) {
    ServiceMediaSource source = {};
    source.id = 1;
    source.name = "music";
    source.status = VANTRO_SOURCE_SCANNING;
    struct {
        char bytes[VANTRO_PACKED_MEDIA_SOURCE_MIN + 5];
    } record = {};
    int size = sizeof record;
    switch (command) {
    case VANTRO_COMMAND_GET_MEDIA_SOURCES:
        pack_media_source(&source, 1, record.bytes, &size);
        return reply(open, context, int32_t{0}, int32_t{1}, record);
    case VANTRO_COMMAND_GET_CURRENT_TRKSESSION_INFO:
        return reply(open, context, int32_t{0}, VantroTrksessionInfo{});
    case VANTRO_COMMAND_CREATE_TRKSESSION:
        return reply(open, context, int32_t{0}, uint64_t{7});
    default:
        return reply(open, context, int32_t{ENODATA});
    }
}

int32_t answer(MsgOsb *open, MsgContext *context, MsgService *) {
    uint16_t command = 0;
    std::memcpy(&command, context->payload, sizeof command);
    const bool opening = command == VANTRO_COMMAND_OPEN;
    if (manner == Manner::silent) {
        return 0;
    }
    if (manner == Manner::dies && !opening) {
        _exit(0);
    }
    if (manner == Manner::scans && !opening) {
        return answer_while_scanning(open, context, command);
    }
    return reply(open, context,
                 !opening                            ? refusal_result
                 : manner == Manner::knows_no_player ? int32_t{ENOENT}
                                                     : int32_t{0});
}

int32_t admit(MsgOsb *, MsgContext *, MsgService *) {
    return manner == Manner::full ? EAGAIN : 0;
}

// A service in a process of its own; returns once it can be found.
class Service {
  public:
    explicit Service(Manner with, const char *options = nullptr, bool plain = false)
        : process_([=] {
              if (plain) {
                  test::become_plain_user();
              }
              manner = with;
              MsgServer *server = msgserver_create(4096, 4, MSGSERVER_FLAG_PATH);
              if (!server || msgserver_add(server, "vantro.sys", nullptr, options, 256, answer,
                                           admit, nullptr) < 0) {
                  return 1;
              }
              std::puts("ready");
              std::fflush(stdout);
              return with == Manner::deaf ? pause() : msgserver_thread_loop(server);
          }) {
        EXPECT_EQ(process_.line(), "ready");
    }

  private:
    test::Process process_;
};

TEST_F(Vantroctl, TellsAnAbsentServiceAndSaysSoInJsonToo) {
    EXPECT_EQ(run({"play"}), 3);
    EXPECT_EQ(said_, "vantroctl: no service: is vantrod running?\n");
    EXPECT_EQ(run({"status", "--json"}), 3);
    EXPECT_EQ(said_, "vantroctl: no service: is vantrod running?\n"
                     "{\"ok\":false,\"error\":\"no service: is vantrod running?\",\"code\":3}\n");
    EXPECT_EQ(run({"-v", "play"}), 3);
    EXPECT_NE(said_.find("msgclient_open failed (No such file or directory)\n"), std::string::npos);
}

TEST_F(Vantroctl, RefusesWhatItDoesNotUnderstand) {
    const std::vector<std::string> bad[] = {
        {},
        {"dance"},
        {"play", "now"},
        {"seek"},
        {"seek", "1:5"},
        {"seek", "-"},
        {"seek", "101%"},
        {"seek", "5%%"},
        {"rate", "fast"},
        {"rate", "inf"},
        {"rate", "1x"},
        {"shuffle", "maybe"},
        {"repeat", "two"},
        {"play", "pause"},
        {"--player", "", "play"},
        {"--player", std::string(32, 'p'), "play"},
        {"--timeout", "-1", "play"},
        {"--timeout", "soon", "play"},
        {"--loud", "play"},
    };
    for (const auto &arguments : bad) {
        EXPECT_EQ(run(arguments), 2) << said_;
        EXPECT_EQ(said_.find("vantroctl: "), 0u) << said_;
        EXPECT_EQ(std::count(said_.begin(), said_.end(), '\n'), 1) << said_;
    }
    const std::pair<std::vector<std::string>, const char *> told[] = {
        {{}, "a command is missing"},
        {{"dance"}, "\"dance\" is not a command"},
        {{"--loud"}, "\"--loud\" is not an option"},
        {{"status", "now"}, "status does not take \"now\""},
        {{"sources", "--limit", "3"}, "sources does not take \"--limit\""},
    };
    for (const auto &[arguments, error] : told) {
        EXPECT_EQ(run(arguments), 2);
        EXPECT_EQ(said_, std::string("vantroctl: ") + error + "; see vantroctl --help\n");
    }
    EXPECT_EQ(run({"seek", "1:5", "--json"}), 2);
    EXPECT_NE(said_.find("\n{\"ok\":false,"), std::string::npos) << said_;
    // These are understood: the only error is that there is no service.
    for (const char *target : {"-10", "+10", "-1:30", "83", "1:02:03.5", "50%"}) {
        EXPECT_EQ(run({"seek", target, "--player", std::string(31, 'p')}), 3) << said_;
    }
    EXPECT_EQ(run({"rate", "-1.5"}), 3) << said_;
    EXPECT_EQ(run({"--help"}), 0);
    EXPECT_EQ(run({"seek", "--help"}), 0);
    EXPECT_EQ(run({"--version"}), 0);
}

TEST_F(Vantroctl, TellsAMissingPlayerFromADeadService) {
    {
        Service service(Manner::knows_no_player);
        EXPECT_EQ(run({"--player", "kitchen", "play"}), 3);
        EXPECT_EQ(said_.find("vantroctl: no player \"kitchen\""), 0u) << said_;
    }
    Service service(Manner::dies);
    EXPECT_EQ(run({"next"}), 1);
    EXPECT_EQ(said_.find("vantroctl: next failed: Connection reset"), 0u) << said_;
}

TEST_F(Vantroctl, SaysWhyTheServiceRefused) {
    const struct {
        int32_t result;
        std::vector<std::string> arguments;
        int code;
        const char *error;
    } rows[] = {
        {EIO, {"browse", "1:x"}, 1, "browse failed: the service cannot read or write its state"},
        {EIO, {"search", "x", "--source", "1"}, 1, "search failed: the service cannot read"},
        {EIO, {"info", "1:x"}, 1, "info failed: the service cannot read"},
        {EIO, {"play"}, 1, "play failed: the service cannot read"},
        {ENOMEM, {"browse", "1:x"}, 1, "browse failed: the service has too little memory"},
        {EMFILE, {"jump", "1"}, 1, "jump failed: the service has too few descriptors"},
        {ENODATA, {"next"}, 6, "no track session: load a node or play first"},
        {ERANGE, {"rate", "20"}, 1, "the player cannot play at rate 20"},
        {EBUSY, {"status"}, 1, "status refused by the service: Device or resource busy\n"},
        {-7, {"pause"}, 1, "pause refused by the service: with result -7"},
    };
    for (const auto &row : rows) {
        refusal_result = row.result;
        Service service(Manner::refuses);
        EXPECT_EQ(run(row.arguments), row.code) << row.error;
        EXPECT_EQ(said_.find(std::string("vantroctl: ") + row.error), 0u) << said_;
    }
}

TEST_F(Vantroctl, SaysThatSongsAreStillBeingLookedFor) {
    Service service(Manner::scans);
    EXPECT_EQ(run({"load", "1:"}), 0);
    EXPECT_EQ(said_, "vantroctl: source 1 is still being scanned: songs that are found from now on "
                     "are not loaded\n");
    EXPECT_EQ(run({"load", "1:", "--json"}), 0);
    EXPECT_TRUE(said_.ends_with("\"session_id\":7,\"scanning\":true}\n")) << said_;
    EXPECT_EQ(run({"play"}), 6);
    EXPECT_EQ(said_, "vantroctl: nothing to play: no source has songs; source 1 is still being "
                     "scanned, try again later\n");
}

TEST_F(Vantroctl, TellsAServiceThatIsFullFromNone) {
    Service service(Manner::full);
    EXPECT_EQ(run({"play"}), 1);
    EXPECT_EQ(said_.find("vantroctl: cannot connect: the service has no room"), 0u) << said_;
}

TEST_F(Vantroctl, GivesUpOnAServiceThatDoesNotAnswer) {
    for (const Manner with : {Manner::silent, Manner::deaf}) {
        Service service(with);
        EXPECT_EQ(run({"--timeout", "0.2", "play"}), 5);
        EXPECT_EQ(said_.find("vantroctl: timed out"), 0u) << said_;
    }
}

TEST_F(Vantroctl, SaysThatItIsDenied) {
    give_to_plain_user();
    Service service(Manner::refuses, "perms=0600,uid=0", true);
    const int code = run({"play"}, test::become_plain_user);
    if (code == 96) {
        GTEST_SKIP() << "the program is out of reach of user " << test::plain_user();
    }
    EXPECT_EQ(code, 4);
    EXPECT_EQ(said_.find("vantroctl: denied"), 0u) << said_;
}

TEST_F(Vantroctl, FailsWhereItsOutputIsLost) {
    EXPECT_EQ(run({"--version"}, [] { dup2(open("/dev/full", O_WRONLY), STDOUT_FILENO); }), 1);
    EXPECT_EQ(said_.find("vantroctl: cannot write"), 0u) << said_;
    EXPECT_EQ(run({"--help"}, [] { close(STDOUT_FILENO); }), 1);
    EXPECT_EQ(run({"--help"},
                  [] {
                      int ends[2];
                      if (pipe(ends) != 0 || dup2(ends[1], STDOUT_FILENO) < 0) {
                          _exit(95);
                      }
                      close(ends[0]);
                  }),
              1);
}

TEST_F(Vantroctl, DrivesThePlayersOfTheService) {
    const std::filesystem::path music = path_ + "/music";
    test::make_music(music / "1.flac", 100000, {"TITLE=One", "ARTIST=\x1B[31mRed"});
    test::make_music(music / "2.ogg", 100000, {"TITLE=Two"});
    start_vantrod({"--music", music, "--player", "main", "--player", "den"});

    const struct {
        std::vector<std::string> arguments;
        const char *json;
    } rows[] = {
        {{"play"}, "\"command\":\"play\"}"},
        {{"pause"}, "\"command\":\"pause\"}"},
        {{"seek", "1:23.5"}, "\"command\":\"seek\",\"position_ms\":83500}"},
        {{"seek", "-1:00"}, "\"command\":\"seek\",\"position_ms\":23500}"},
        {{"seek", "+10"}, "\"command\":\"seek\",\"position_ms\":33500}"},
        {{"rate", "1.5"}, "\"command\":\"rate\",\"rate\":1.5}"},
        {{"volume", "40"}, "\"command\":\"volume\",\"volume\":40,\"muted\":false}"},
        {{"volume", "+70"}, "\"command\":\"volume\",\"volume\":100,\"muted\":false}"},
        {{"volume", "-15"}, "\"command\":\"volume\",\"volume\":85,\"muted\":false}"},
        {{"volume", "mute"}, "\"command\":\"volume\",\"volume\":85,\"muted\":true}"},
        {{"volume"}, "\"command\":\"volume\",\"volume\":85,\"muted\":true}"},
        {{"repeat", "one"}, "\"command\":\"repeat\",\"repeat\":\"one\"}"},
        {{"shuffle", "toggle"}, "\"command\":\"shuffle\",\"shuffle\":true}"},
        {{"shuffle", "toggle"}, "\"command\":\"shuffle\",\"shuffle\":false}"},
    };
    for (const auto &row : rows) {
        auto arguments = row.arguments;
        arguments.emplace_back("--json");
        EXPECT_EQ(run(arguments), 0) << row.json;
        EXPECT_EQ(said_, std::string("{\"ok\":true,\"player\":\"main\",") + row.json + "\n");
    }
    EXPECT_EQ(run({"status"}), 0);
    EXPECT_EQ(said_, "player: main\nstate: paused\ntrack: 1\ntracks: 2\ntitle: One\n"
                     "artist: \xEF\xBF\xBD[31mRed\nalbum:\nposition: 0:33\nduration: 1:40\n"
                     "repeat: one\nshuffle: off\nrate: 1.5\nvolume: 85, muted\n");
    EXPECT_EQ(on_terminal(40, {"status"}), 0);
    EXPECT_EQ(said_.find("main: paused, track 1 of 2\n"), 0u) << said_;
    EXPECT_EQ(run({"seek", "-50"}), 0);
    EXPECT_EQ(said_, "");
    EXPECT_EQ(run({"--player", "den", "next"}), 6);
    EXPECT_EQ(said_, "vantroctl: no track session: load a node or play first\n");
    EXPECT_EQ(run({"--player", "den", "play"}), 0) << said_;
    EXPECT_EQ(run({"--player", "den", "next"}), 0) << said_;
    EXPECT_EQ(run({"status", "--player", "den", "--json"}), 0);
    EXPECT_NE(said_.find("\"track\":{\"index\":1,\"title\":\"Two\""), std::string::npos) << said_;
    EXPECT_EQ(run({"status"}), 0);
    EXPECT_NE(said_.find("\ntrack: 1\n"), std::string::npos) << said_;
    EXPECT_NE(said_.find("\nposition: 0:00\n"), std::string::npos) << said_;

    end_vantrod();
    EXPECT_EQ(run({"status"}), 3);
}

} // namespace
} // namespace vantro::ctl
