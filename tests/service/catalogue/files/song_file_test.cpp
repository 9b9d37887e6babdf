// What is taken from audio files.
#include <fstream>

#include <taglib/apetag.h>
#include <taglib/id3v1tag.h>
#include <taglib/mpegfile.h>

#include "tests/service/catalogue/audio_files.h"

namespace vantro::service::catalogue {

namespace {

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

class Songs : public Collection {};

TEST_F(Songs, ReadsEveryFormatWhateverItsName) {
    test::make_music(music_ / "vorbis.ogg", 300);
    test::make_music(music_ / "flac.flac", 300);
    test::write_file(music_ / "mp3.mp3", mp3());
    test::write_file(music_ / "wav.WAV", wav());
    test::write_file(music_ / "opus.opus", opus());
    test::write_file(music_ / "m4a.m4a", m4a());
    test::write_file(music_ / "wrong ending.mp3", "");
    fs::copy_file(music_ / "flac.flac", music_ / "wrong ending.mp3",
                  fs::copy_options::overwrite_existing);
    test::write_file(music_ / "notes.txt", "no business of ours");
    open();
    EXPECT_EQ(complaints(), Names{});
    const std::pair<const char *, const char *> table[] = {
        {"flac", "flac"},     {"m4a", "aac"}, {"mp3", "mp3"},          {"opus", "opus"},
        {"vorbis", "vorbis"}, {"wav", "pcm"}, {"wrong ending", "flac"}};
    Names titles;
    for (const auto &[title, codec] : table) {
        titles.push_back(title);
        const Node song = entry("songs", title);
        EXPECT_EQ(extended(song.id, {"codec"}), Names{codec}) << title;
        EXPECT_GT(metadata(song.id).duration_ms, 0) << title;
    }
    EXPECT_EQ(names("songs"), titles);
}

TEST_F(Songs, HaveTheTagsOfAnOldTagBesideOneWithGainAlone) {
    const fs::path file = music_ / "1.mp3";
    test::write_file(file, mp3());
    {
        TagLib::MPEG::File tagged(file.c_str());
        tagged.ID3v1Tag(true)->setTitle("old");
        tagged.ID3v1Tag()->setArtist("anna");
        tagged.APETag(true)->addValue("REPLAYGAIN_TRACK_GAIN", "-6 dB");
        ASSERT_TRUE(tagged.save(TagLib::MPEG::File::ID3v1 | TagLib::MPEG::File::APE));
    }
    open();
    const Node song = entry("songs", "old");
    EXPECT_EQ(extended(song.id, {"artist", "replaygain_track_gain"}), (Names{"anna", "-6 dB"}));
}

TEST_F(Songs, AreOfEachOfTheirArtists) {
    add("1/1.flac", {{"TITLE", "both"}, {"ARTIST", "Anna"}, {"ARTIST", "Bert"}, {"ALBUM", "one"}});
    add("1/2.flac", {{"TITLE", "hers"}, {"ARTIST", "Anna"}, {"ALBUM", "one"}});
    add("2/1.flac", {{"TITLE", "theirs"},
                     {"ARTIST", "Carl"},
                     {"ALBUMARTIST", "Dora"},
                     {"ALBUMARTIST", "Emil"},
                     {"ALBUM", "two"}});
    open();
    EXPECT_EQ(names("artists"), (Names{"Anna", "Bert", "Carl", "Dora", "Emil"}));
    EXPECT_EQ(metadata(entry("songs", "both").id).artist, "Anna; Bert");
    EXPECT_EQ(metadata(entry("albums", "one").id).artist, "Anna");
    EXPECT_EQ(metadata(entry("albums", "two").id).artist, "Dora");
    EXPECT_EQ(names("albums"), (Names{"one", "two"}));
    const std::pair<const char *, Names> table[] = {{"Anna", {"both", "hers"}},
                                                    {"Bert", {"both"}},
                                                    {"Carl", {"theirs"}},
                                                    {"Dora", {"theirs"}},
                                                    {"Emil", {"theirs"}}};
    for (const auto &[artist, songs] : table) {
        EXPECT_EQ(played(entry("artists", artist).id), songs) << artist;
        EXPECT_EQ(found("artist", artist), Names{artist});
    }
    // Another album in the folder, and then another artist of most songs.
    add("1/2.flac", {{"TITLE", "his"}, {"ARTIST", "Bert"}, {"ALBUM", "one"}});
    add("1/3.flac", {{"TITLE", "also his"}, {"ARTIST", "Bert"}, {"ALBUM", "one"}});
    scan();
    EXPECT_EQ(metadata(entry("albums", "one").id).artist, "Bert");
    EXPECT_EQ(played(entry("artists", "Anna").id), Names{"both"});
    fs::remove_all(music_ / "1");
    scan();
    EXPECT_EQ(names("artists"), (Names{"Carl", "Dora", "Emil"}));
}

TEST_F(Songs, OfUnknownLengthAreMeasured) {
    test::make_music(music_ / "one block.flac", 300);
    test::make_music(music_ / "many.flac", 5000);
    const auto forget_length = [&](const char *name) {
        std::fstream file(music_ / name, std::ios::in | std::ios::out | std::ios::binary);
        file.seekg(4 + 4 + 13); // 36 bits of it, of which the first four share a byte
        const char shared = static_cast<char>(file.get() & 0xF0);
        file.seekp(4 + 4 + 13);
        file.put(shared);
        file.write("\0\0\0\0", 4);
    };
    forget_length("one block.flac");
    forget_length("many.flac");
    open();
    EXPECT_EQ(complaints(), Names{});
    EXPECT_EQ(metadata(entry("songs", "one block").id).duration_ms, 300);
    EXPECT_EQ(metadata(entry("songs", "many").id).duration_ms, 5000);
}

} // namespace

} // namespace vantro::service::catalogue
