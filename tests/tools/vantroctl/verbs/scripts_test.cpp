// What scripts and status bars use: templates, waiting for the service, and the reason if nothing
// works.
#include <fmt/format.h>

#include "tests/tools/vantroctl/vantroctl_process.h"

namespace vantro::ctl {
namespace {

class Scripts : public Vantroctl {
  protected:
    void start() {
        test::make_music(path_ + "/music/1.flac", 100000,
                         {"TITLE=One\x1B[31m", "ARTIST=\xC3\x89na", "DATE=1999"});
        test::make_music(path_ + "/music/2.ogg", 200000, {"TITLE=Two"});
        start_vantrod({"--music", path_ + "/music"});
    }
};

TEST_F(Scripts, ShowWhatTheirTemplateSays) {
    start();
    ASSERT_EQ(run({"play"}), 0);
    ASSERT_EQ(run({"pause"}), 0);
    ASSERT_EQ(run({"seek", "1:10"}), 0);
    ASSERT_EQ(run({"volume", "40"}), 0);
    const struct {
        const char *verb, *format, *shown;
    } rows[] = {
        {"status", "{{artist}} - {{title}}", "\xC3\x89na - One\xEF\xBF\xBD[31m\n"},
        {"status", R"(\{{state}}\t{{track}}/{{ tracks }}\\)", "{{state}}\t1/2\\\n"},
        {"status", "{{duration(position)}}/{{duration(length)}} {{position}}", "1:10/1:40 70000\n"},
        {"status",
         "{{lc(artist)}}{{uc('stra\xC3\x9F"
         "e')}}",
         "\xC3\xA9naSTRASSE\n"},
        {"status", "{{group('[', album, ']')}}{{group('[', year, ']\\n')}}x", "[1999]\nx\n"},
        {"status", R"({{default(album, genre, "none")}} {{not(album)}})", "none yes\n"},
        {"status", R"({{if(eq(state, "paused"), volume, rate)}}{{if(muted, "x")}})", "40\n"},
        {"status", "{{trunc(title, 3)}}{{pad(4, 2)}}{{markup_escape('<\\'>')}}",
         "On\xE2\x80\xA6"
         "4 &lt;&apos;&gt;\n"},
        {"status", "{{album}}", ""},
        {"status", "{{position * 100 / length}}% {{-(length - position) + 10 * 2}} {{7 / 2}}",
         "70% -29980 3\n"},
        {"status", "{{volume / 3.0}} {{volume / 0}}{{title + 1}}{{9223372036854775807 + 1}}|",
         "13.333 |\n"},
        {"status", "{{emoji(state)}}{{emoji(volume)}}{{emoji(artist)}}",
         "\xE2\x8F\xB8\xEF\xB8\x8F\xF0\x9F\x94\x89\xC3\x89na\n"},
        {"players", "{{player}}={{state}}", "main=paused\n"},
        {"tracks", "{{track}}{{if(current, '*')}} {{length}} {{title}}",
         "1* 100000 One\xEF\xBF\xBD[31m\n2 200000 Two\n"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(run({row.verb, "--format", row.format}), 0) << said_;
        EXPECT_EQ(said_, row.shown) << row.format;
    }
    EXPECT_EQ(run({"search", "two", "--format", "{{type}} {{title}}"}), 0);
    EXPECT_EQ(said_, "song Two\n");
    EXPECT_EQ(run({"browse", "--tree", "--format", "{{level}}{{name}}", "--limit", "2"}), 0);
    EXPECT_EQ(said_, "0Artists\n1\xC3\x89na\n");

    test::Process watch({VANTROCTL, "watch", "--format", "{{state}} {{default(title, '-')}}"});
    EXPECT_EQ(watch.line(), "paused -");
    EXPECT_EQ(watch.line(), "paused One\xEF\xBF\xBD[31m");
    ASSERT_EQ(run({"volume", "50"}), 0); // changes nothing that is shown
    ASSERT_EQ(run({"next"}), 0);
    EXPECT_EQ(watch.line(), "paused Two");
}

TEST_F(Scripts, LearnWhereTheirTemplateIsWrong) {
    const struct {
        const char *format, *error;
    } rows[] = {
        {"{{", "character 3: a field, a function, a number or a text"},
        {"\xC3\x89 {{artst}}", "character 5: no field artst; the fields are player, "},
        {"ab\\x", "character 3: the escapes are "},
        {"{{lc()}}", "character 6: a field, "},
        {"{{lc(artist, 1)}}", "character 3: lc() takes 1 values, not 2"},
        {"{{low(artist)}}", "character 3: no function low; the functions are lc, "},
        {"x{{artist", "character 2: {{ without }}"},
        {"{{artist}", "character 9: }} is expected"},
        {"{{\"artist}}", "character 3: the text has no end"},
        {"{{if(artist, title}}", "character 19: , or ) is expected"},
        {"{{(1 + 2}}", "character 9: ) is expected"},
        {"{{1 +}}", "character 6: a field, "},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(run({"status", "--format", row.format}), 2) << row.format;
        EXPECT_EQ(said_.find(fmt::format("vantroctl: --format: {}", row.error)), 0u) << said_;
    }
    constexpr const char *deep_error = "expressions are nested too deeply";
    for (const auto &[around, error] : {std::pair{"lc({})", deep_error},
                                        {"({})", deep_error},
                                        {"-{}", deep_error},
                                        {"{}+1", "too many operators in one expression"}}) {
        std::string deep = "artist";
        for (int i = 0; i < 100; ++i) {
            deep = fmt::format(fmt::runtime(around), deep);
        }
        EXPECT_EQ(run({"status", "--format", "{{" + deep + "}}"}), 2) << around;
        EXPECT_NE(said_.find(error), said_.npos) << said_;
    }
    EXPECT_EQ(run({"status", "--json", "--format", "x"}), 2);
    EXPECT_EQ(run({"play", "--format", "x"}), 2);
}

TEST_F(Scripts, WaitForAServiceThatStartsLater) {
    EXPECT_EQ(run({"--wait=0.1", "status"}), 3);
    EXPECT_EQ(said_, "vantroctl: no service within 0.1 s: is vantrod running?\n");
    EXPECT_EQ(run({"--wait=soon", "status"}), 2);
    test::Process status({VANTROCTL, "status", "--wait", "--format", "{{player}} {{state}}"});
    test::Process watch({VANTROCTL, "watch", "--wait=600", "--format", "{{event}}"});
    EXPECT_FALSE(status.readable(300));
    start();
    EXPECT_EQ(status.line(), "main idle");
    EXPECT_EQ(watch.line(), "state");
    EXPECT_EQ(status.wait(), 0);
}

TEST_F(Scripts, AreToldWhatPlaysAndWhatFollows) {
    start();
    const struct {
        std::vector<std::string> words;
        int code;
        const char *said;
    } rows[] = {
        {{"current"}, 0, ""},
        {{"queued"}, 0, ""},
        {{"repeat"}, 0, "off\n"},
        {{"load", "1:songs"}, 0, ""},
        {{"current"}, 0, "\xC3\x89na - One\xEF\xBF\xBD[31m\n"},
        {{"queued"}, 0, "Two\n"},
        {{"play", "2"}, 0, "2 of 2: Two (3:20)\n"},
        {{"queued"}, 0, ""},
        {{"repeat", "toggle"}, 0, ""},
        {{"queued", "--format", "{{track}}"}, 0, "1\n"},
        {{"repeat", "one"}, 0, ""},
        {{"queued", "--format", "{{track}}"}, 0, "2\n"},
        {{"repeat", "toggle"}, 0, ""},
        {{"repeat"}, 0, "off\n"},
        {{"shuffle", "on"}, 0, ""},
        {{"shuffle"}, 0, "on\n"},
        {{"queued"}, 1, "vantroctl: in random order only the service knows what follows\n"},
        {{"seek", "--through", "1"},
         1,
         "vantroctl: in random order only the service knows what "
         "follows\n"},
        {{"play", "3"}, 6, "vantroctl: no track 3: the session has 2\n"},
        {{"play", "--search", "TW"}, 0, "2 of 2: Two (3:20)\n"},
        {{"play", "--search", "\xC3\xA9NA", "one"},
         0,
         "1 of 2: One\xEF\xBF\xBD[31m - \xC3\x89na (1:40)\n"},
        {{"play", "--search", "one", "two"}, 6, "vantroctl: no track contains \"one two\"\n"},
        {{"shuffle", "off"}, 0, ""},
        {{"pause"}, 0, ""},
        {{"seek", "1:00"}, 0, ""},
        {{"seek", "-10%"}, 0, ""},
        {{"status", "--format", "{{track}} {{position}}"}, 0, "1 50000\n"},
        {{"seek", "--through", "+1:00"}, 0, "2 of 2: Two (3:20)\n"},
        {{"status", "--format", "{{track}} {{position}}"}, 0, "2 10000\n"},
        {{"seek", "--through", "-20"}, 0, "1 of 2: One\xEF\xBF\xBD[31m - \xC3\x89na (1:40)\n"},
        {{"status", "--format", "{{track}} {{position}}"}, 0, "1 90000\n"},
        {{"seek", "--through", "-1:00:00"}, 0, ""},
        {{"seek", "--through", "5:00"}, 6, "vantroctl: the last track ends before that\n"},
        {{"status", "--format", "{{track}} {{position}}"}, 0, "1 0\n"},
        {{"play", "2"}, 0, "2 of 2: Two (3:20)\n"},
        {{"crop"}, 0, ""},
        {{"status", "--format", "{{state}} {{track}}/{{tracks}} {{title}}"},
         0,
         "playing 1/1 Two\n"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(run(row.words), row.code) << row.words[0];
        EXPECT_EQ(said_, row.said) << row.words[0];
    }
}

TEST_F(Scripts, GetColoursOnlyOnTerminalsThatWantThem) {
    start();
    ASSERT_EQ(run({"play"}), 0);
    const struct {
        bool terminal;
        const char *refused, *mode;
        bool painted;
    } rows[] = {
        {true, "", "auto", true},   {true, "1", "auto", false}, {true, "1", "always", true},
        {true, "", "never", false}, {false, "", "auto", false}, {false, "", "always", true},
    };
    for (const auto &row : rows) {
        setenv("NO_COLOR", row.refused, 1);
        for (const char *verb : {"status", "tracks", "players"}) {
            const std::vector<std::string> words = {verb, "--color", row.mode};
            EXPECT_EQ(row.terminal ? on_terminal(60, words) : run(words), 0);
            EXPECT_EQ(said_.find("\x1B[1m") != said_.npos, row.painted) << verb << said_;
            EXPECT_EQ(said_.find("\x1B[31m"), said_.npos) << said_;
        }
    }
    unsetenv("NO_COLOR");
    EXPECT_EQ(run({"dance", "--color=always"}), 2);
    EXPECT_EQ(said_.find("\x1B[31mvantroctl:\x1B[0m \"dance\""), 0u) << said_;
    EXPECT_EQ(run({"status", "--color=often"}), 2);
}

TEST_F(Scripts, AreToldWhatIsWrongAndHowToMendIt) {
    EXPECT_EQ(run({"doctor"}), 3);
    EXPECT_NE(said_.find("bad\tservice\tno service answers\tstart one: "), said_.npos) << said_;
    EXPECT_EQ(run({"whoami"}), 3);
    start();
    EXPECT_EQ(run({"doctor"}), 0) << said_;
    EXPECT_EQ(said_.find("ok\troot\t" + path_ + "/vantro\t\nok\tservice\t"), 0u) << said_;
    EXPECT_NE(said_.find("ok\tmusic\tsource 1 (music) is ready, with 2 songs\t\n"), said_.npos);
    EXPECT_EQ(run({"whoami", "--json"}), 0);
    EXPECT_NE(said_.find(fmt::format("\"uid\":{},", geteuid())), said_.npos) << said_;
    EXPECT_EQ(run({"status", "--player", "den"}), 3);
    EXPECT_EQ(said_, "vantroctl: no player \"den\" (players: main); choose one with --player\n");
    EXPECT_EQ(run({"doctor", "--player", "den", "--json"}), 3);
    EXPECT_EQ(said_.find(R"({"ok":false,"command":"doctor","error":"there is no player den)"), 0u)
        << said_;
    end_vantrod();
    start_vantrod({});
    EXPECT_EQ(run({"doctor"}), 6);
    EXPECT_NE(said_.find("bad\tmusic\tthere is no media source\t"), said_.npos) << said_;
    end_vantrod();

    test::write_file(path_ + "/policy", "*  audio\n");
    test::Process grantor({VANTRO_GRANTOR, "--policy", path_ + "/policy"});
    EXPECT_EQ(grantor.line(), "vantro-grantor: ready (1 rules)");
    start_vantrod({"--require", "audio"});
    EXPECT_EQ(run({"whoami"}), 0);
    EXPECT_NE(said_.find("\ncapabilities: audio\n"), said_.npos) << said_;
    test::write_file(path_ + "/policy", "# nothing\n");
    grantor.kill(SIGHUP);
    EXPECT_EQ(grantor.line(), "vantro-grantor: policy reloaded (0 rules)");
    EXPECT_EQ(run({"doctor"}), 4);
    EXPECT_NE(said_.find("bad\trights\tthe service, run by "), said_.npos) << said_;
}

} // namespace
} // namespace vantro::ctl
