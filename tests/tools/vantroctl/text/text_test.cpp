#include <gtest/gtest.h>

#include "tools/vantroctl/output/status_view.h"
#include "tools/vantroctl/text/display_text.h"
#include "tools/vantroctl/text/time_text.h"

namespace vantro::ctl {
namespace {

TEST(TimeText, ReadsWhatPeopleWrite) {
    const struct {
        const char *text;
        bool relative;
        int32_t ms;
    } good[] = {
        {"0", false, 0},
        {"83", false, 83000},
        {"83.5", false, 83500},
        {"1:23", false, 83000},
        {"90:05", false, 5405000},
        {"1:02:03.0407", false, 3723040},
        {"+10", true, 10000},
        {"-10", true, -10000},
        {"-1:30.25", true, -90250},
        {"+1:00:00", true, 3600000},
        {"2147483.647", false, INT32_MAX},
    };
    for (const auto &row : good) {
        const auto target = parse_seek(row.text);
        ASSERT_TRUE(target) << row.text;
        EXPECT_EQ(target->relative, row.relative) << row.text;
        EXPECT_EQ(target->ms, row.ms) << row.text;
    }
    for (const char *bad :
         {"",      "+",       "-",          "x",           "1x",       " 1",
          "1 ",    "1:",      ":30",        "1:5",         "1:60",     "1:005",
          "1:2:3", "1:60:00", "1:00:00:00", "1.",          ".5",       "1,5",
          "1:-5",  "+-1",     "1e3",        "2147483.648", "-2147484", "99999999999999999999",
          "1.5:00"}) {
        EXPECT_FALSE(parse_seek(bad)) << bad;
    }
}

constexpr const char *e_acute = "e\xCC\x81";              // e and a combining acute: one column
constexpr const char *kanji = "\xE6\xBC\xA2\xE5\xAD\x97"; // two characters of two columns

TEST(DisplayText, CleansWhatCouldDriveATerminal) {
    const std::string bad = "\xEF\xBF\xBD";
    const struct {
        std::string text, clean;
    } rows[] = {
        {"\x1B[2J\x07", bad + "[2J" + bad},
        {"a\tb\nc\r", "a b c "},
        {"\xC2\x9B"
         "31m",
         bad + "31m"}, // CSI as one character
        {"\xE2\x80\xAE"
         "abc",
         bad + "abc"},           // right-to-left override
        {"\xE2\x80\xA8", " "},   // line separator
        {"\xFF\xC3", bad + bad}, // never a lead, and cut short
        {"\xE6\xBC"
         "a",
         bad + "a"},                                 // cut short inside the text
        {"\xC0\xAF", bad + bad},                     // overlong
        {"\xED\xA0\x80", bad + bad + bad},           // surrogate
        {"\xF4\x90\x80\x80", bad + bad + bad + bad}, // beyond Unicode
        {std::string("a\0b", 3), "a" + bad + "b"},
        {kanji, kanji},
        {e_acute, e_acute},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(clean_text(row.text), row.clean) << testing::PrintToString(row.text);
    }
    std::string heap = "e";
    for (int i = 0; i < 1000; ++i) {
        heap += "\xCC\x81";
    }
    EXPECT_EQ(clean_text(heap).size(), 1u + 2 * combining_max);
}

TEST(DisplayText, ClipsBetweenCharacters) {
    const std::string dots = "\xE2\x80\xA6";
    const std::string han = std::string(kanji).substr(0, 3);
    const struct {
        std::string text;
        int columns;
        std::string clipped;
    } rows[] = {
        {"abc", 3, "abc"},
        {"abcd", 3, "ab" + dots},
        {"abc", 1, dots},
        {"abc", 0, ""},
        {kanji, 4, kanji},
        {kanji, 3, han + dots},
        {std::string(kanji) + "x", 4, han + dots}, // the second one would leave no room for dots
        {kanji, 1, dots},
        {std::string(e_acute) + e_acute, 2, std::string(e_acute) + e_acute},
        {std::string(e_acute) + e_acute + "x", 2, e_acute + dots},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(clip_text(row.text, row.columns), row.clipped) << row.text << row.columns;
        EXPECT_LE(display_width(clip_text(row.text, row.columns)), row.columns);
    }
}

TEST(DisplayText, FoldsAtBlanksAndElseBetweenCharacters) {
    using Lines = std::vector<std::string>;
    const std::string han = std::string(kanji).substr(0, 3);
    EXPECT_EQ(fold_text("", 5), Lines{""});
    EXPECT_EQ(fold_text("ab cd efghijk", 5), (Lines{"ab cd", "efghi", "jk"}));
    EXPECT_EQ(fold_text("ab  cd", 3), (Lines{"ab ", "cd"}));
    EXPECT_EQ(fold_text(std::string(kanji) + e_acute, 3),
              (Lines{han, std::string(kanji).substr(3) + e_acute}));
    EXPECT_EQ(fold_text(kanji, 1), (Lines{han, std::string(kanji).substr(3)})); // never endless
}

PlayerStatus playing() {
    PlayerStatus status;
    status.player = "main";
    status.state = 2;
    status.rate = 1.1f;
    status.repeat = 1;
    status.shuffle = 1;
    status.position_ms = 30000;
    status.session = SessionStatus{7, 1, 12};
    status.track = TrackStatus{};
    status.track->index = 2;
    status.track->title = "A \"title\"\n";
    status.track->artist = std::string(kanji) + "\xFF";
    status.track->duration_ms = 60000;
    return status;
}

TEST(StatusView, ScreenShowsEverythingAndFits) {
    EXPECT_EQ(render_screen(playing(), 40), "main: playing, track 3 of 12\n"
                                            "Title   A \"title\" \n"
                                            "Artist  \xE6\xBC\xA2\xE5\xAD\x97\xEF\xBF\xBD\n"
                                            "Album   -\n"
                                            "0:30 [==============>-------------] 1:00\n"
                                            "repeat all   shuffle on   rate 1.1\n");
    EXPECT_EQ(render_screen(playing(), 12), "main: playi\xE2\x80\xA6\n"
                                            "A \"title\" \n"
                                            "\xE6\xBC\xA2\xE5\xAD\x97\xEF\xBF\xBD\n"
                                            "-\n"
                                            "0:30/1:00\n"
                                            "repeat all\n"
                                            "shuffle on\n"
                                            "rate 1.1\n");
    for (int columns = 1; columns < 200; ++columns) {
        std::string screen = render_screen(playing(), columns);
        for (size_t end = 0; (end = screen.find('\n')) != std::string::npos;) {
            EXPECT_LE(display_width(screen.substr(0, end)), columns) << screen;
            screen.erase(0, end + 1);
        }
    }
}

TEST(StatusView, LinesAreAlwaysAllThere) {
    PlayerStatus status = playing();
    status.track.reset();
    status.session.reset();
    status.state = 17;
    status.repeat = -1;
    EXPECT_EQ(render_lines(status),
              "player: main\nstate: unknown\ntrack:\ntracks:\ntitle:\nartist:\nalbum:\nposition:\n"
              "duration:\nrepeat: unknown\nshuffle: on\nrate: 1.1\n");
    EXPECT_EQ(render_screen(status, 80), "main: unknown\nno track\n"
                                         "repeat unknown   shuffle on   rate 1.1\n");
}

} // namespace
} // namespace vantro::ctl
