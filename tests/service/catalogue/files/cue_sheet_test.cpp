// Which songs cue sheets make of files.
#include "tests/service/catalogue/collection.h"

#include <vantro/catalogue.h>

namespace vantro::service::catalogue {

namespace {

using Names = std::vector<std::string>;
namespace fs = std::filesystem;

class CueSheets : public Collection {};

TEST_F(CueSheets, CutFilesIntoSongs) {
    const std::string tracks = "TRACK 01 AUDIO\n TITLE \"Caf\xE9 \"9\"\"\n INDEX 01 00:00:00\n"
                               "TRACK 02 AUDIO\n PERFORMER Two\n INDEX 00 00:00:10\n"
                               " INDEX 01 00:00:15\n";
    const auto sheet = [&](const std::string &file) {
        return "REM DATE 1999\r\nPERFORMER \"One\"\r\nTITLE \"Disc\"\r\nFILE \"" + file +
               "\" WAVE\r\n" + tracks;
    };
    add("disc.flac", {{"GENRE", "Folk"}, {"TITLE", "whole"}});
    test::write_file(music_ / "disc.cue", sheet("D:\\rips\\disc.wav"));
    add("in.flac", {{"CUESHEET", "FILE x WAVE\nTRACK 07 AUDIO\nTITLE inside\nINDEX 01 00:00:15"}});
    // 400 ms are 30 frames, so the last track of this one begins after the end.
    add("late/late.flac", {{"TITLE", "late"}});
    test::write_file(music_ / "late/late.cue",
                     sheet("late.flac") + "TRACK 3 AUDIO\nINDEX 01 01:00:00");
    // Cut down to 32 bits, its milliseconds are 64.
    add("later/later.flac", {{"TITLE", "later"}});
    test::write_file(music_ / "later/later.cue",
                     sheet("later.flac") + "TRACK 3 AUDIO\nINDEX 01 71582:47:27");
    const std::pair<const char *, std::string> bad[] = {
        {"gone", sheet("gone.flac")},
        {"nofile", tracks},
        {"again", sheet("disc.flac")}, // the first in the order of names is used
        {"back",
         "FILE disc.flac WAVE\nTRACK 1 AUDIO\nINDEX 01 00:01:00\nTRACK 2 AUDIO\nINDEX 01 0:0:1"},
        {"100", "FILE \"disc.flac\" WAVE\nTRACK 100 AUDIO\nINDEX 01 00:00:00"},
        {"time", "FILE disc.flac WAVE\nTRACK 1 AUDIO\nINDEX 01 00:60:00"},
        {"data", std::string("FILE disc.flac\0", 15)},
    };
    for (const auto &[name, text] : bad) {
        test::write_file(music_ / (std::string("z\r\x1B") + name + ".cue"), text);
    }
    open();
    EXPECT_EQ(names("folders"), (Names{"late", "later", "Café \"9\"", "disc 02", "inside"}));
    EXPECT_EQ(complaints().size(), std::size(bad) + 2);
    EXPECT_EQ(names("songs").size(), 5u);
    const Node second = entry("songs", "disc 02");
    const SongMetadata known = metadata(second.id);
    EXPECT_EQ(known.artist + known.album + known.year + known.genre, "TwoDisc1999Folk");
    EXPECT_EQ(known.track, 2);
    EXPECT_EQ(known.duration_ms, 200);
    EXPECT_EQ(extended(second.id, {VANTRO_KEY_PATH, VANTRO_KEY_START}),
              (Names{(music_ / "disc.flac").native(), "200"}));
    EXPECT_EQ(metadata(entry("songs", "Café \"9\"").id).duration_ms, 200);
    EXPECT_EQ(store_->check(all_songs().at(0).id), 0);

    scan();
    EXPECT_EQ(last().read, 0) << "nothing has changed";
    EXPECT_EQ(complaints(), Names{}) << "each is named once";
    test::write_file(music_ / "disc.cue", sheet("disc.flac") + "TRACK 3 AUDIO\nINDEX 01 0:0:20");
    fs::remove(music_ / "late/late.cue");
    fs::remove(music_ / "later/later.cue");
    scan();
    EXPECT_EQ(names("folders"),
              (Names{"late", "later", "Café \"9\"", "disc 02", "disc 03", "inside"}));
    EXPECT_EQ(entry("songs", "disc 02").id, second.id);
    for (const auto &[name, text] : bad) {
        fs::remove(music_ / (std::string("z\r\x1B") + name + ".cue"));
    }
    fs::remove(music_ / "disc.cue");
    fs::remove(music_ / "in.flac");
    scan();
    EXPECT_EQ(names("songs"), (Names{"late", "later", "whole"}));
    EXPECT_EQ(complaints(), Names{});
}

} // namespace

} // namespace vantro::service::catalogue
