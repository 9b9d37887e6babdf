// What is read from audio files.
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
    {
        TagLib::MPEG::File tagged(file.c_str());
        tagged.APETag()->setTitle("new");
        ASSERT_TRUE(tagged.save(TagLib::MPEG::File::ID3v1 | TagLib::MPEG::File::APE));
    }
    scan();
    EXPECT_EQ(metadata(song.id).title, "new");
    EXPECT_EQ(metadata(song.id).artist, "") << "an old tag does not mix with a new one";
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

// Formats of which only the header is read: each file lasts a second.
std::string au() {
    return ".snd" + big_endian(24, 4) + big_endian(16000, 4) + big_endian(3, 4) +
           big_endian(8000, 4) + big_endian(1, 4) + std::string(16000, '\0');
}

std::string ac3() {
    return std::string("\x0B\x77\0\0\x14\x40", 6) + std::string(24000 - 6, '\0');
}

std::string aac() {
    std::string file;
    for (int i = 0; i < 43; ++i) {
        file += std::string("\xFF\xF1\x50\x80\x0C\x80\0", 7) + std::string(93, '\0');
    }
    return file;
}

std::string caf() {
    return "caff" + big_endian(1, 2) + big_endian(0, 2) + "desc" + big_endian(0, 4) +
           big_endian(32, 4) + big_endian(0x40BF4000, 4) + big_endian(0, 4) + "lpcm" +
           big_endian(0, 4) + big_endian(2, 4) + big_endian(1, 4) + big_endian(1, 4) +
           big_endian(16, 4) + "data" + big_endian(0, 4) + big_endian(16004, 4) +
           std::string(16004, '\0');
}

std::string mka() {
    const std::string info =
        std::string("\x2A\xD7\xB1\x83\x0F\x42\x40\x44\x89\x84\x44\x7A\0\0", 14) + "\x7B\xA9\x83mka";
    return "\x1A\x45\xDF\xA3\x80\x18\x53\x80\x67\x01" + std::string(7, '\xFF') +
           "\x15\x49\xA9\x66" + static_cast<char>(0x80 | info.size()) + info;
}

std::string xm() {
    std::string file = "Extended Module: xm" + std::string(18, ' ') + '\x1A' + std::string(20, ' ');
    for (const uint64_t number : {0x0104, 276, 0, 4, 0, 4, 0, 0, 1, 3, 1920}) {
        file += little_endian(number, 2);
    }
    return file + std::string(256, '\0');
}

TEST_F(Songs, OfRareFormatsAreKnownByTheirHeaders) {
    std::string mp2 = mp3();
    for (size_t at = 0; (at = mp2.find("\xFF\xFB", at)) != std::string::npos;) {
        mp2.replace(at, 2, "\xFF\xFD");
    }
    const struct {
        const char *file;
        std::string bytes;
        int32_t least_ms;
        const char *codec;
    } table[] = {{"aac.aac", aac(), 998, "aac"}, {"ac3.AC3", ac3(), 1000, "ac3"},
                 {"au.au", au(), 1000, "pcm"},   {"caf.caf", caf(), 1000, ""},
                 {"mka.webm", mka(), 1000, ""},  {"mp2.mp2", mp2, 500, "mp2"},
                 {"xm.xm", xm(), 1000, ""}};
    for (const auto &[file, bytes, least_ms, codec] : table) {
        test::write_file(music_ / file, bytes);
    }
    open();
    EXPECT_EQ(complaints(), Names{});
    for (const auto &[file, bytes, least_ms, codec] : table) {
        SCOPED_TRACE(file);
        const Node song = entry("songs", std::string(file).substr(0, std::string(file).find('.')));
        const int32_t ms = metadata(song.id).duration_ms;
        EXPECT_GE(ms, least_ms);
        EXPECT_LE(ms, least_ms + 50);
        EXPECT_EQ(extended(song.id, {"codec"}), Names{codec});
    }
    for (const size_t size : {57, 50, 43, 36, 29, 22, 15, 8, 3}) {
        for (const auto &[file, bytes, least_ms, codec] : table) {
            test::write_file(music_ / file, bytes.substr(0, size));
        }
        scan();
    }
    EXPECT_EQ(names("songs"), Names{});
}

TEST_F(Songs, OfUnknownLengthAreMeasured) {
    test::make_music(music_ / "one block.flac", 300);
    test::make_music(music_ / "many.flac", 5000);
    const auto forget_length = [&](const char *name) {
        std::fstream file(music_ / name, std::ios::in | std::ios::out | std::ios::binary);
        file.seekg(4 + 4 +
                   13); // the number of samples: 36 bits, the first four of which share a byte
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
