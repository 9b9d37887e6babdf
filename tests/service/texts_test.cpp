// What is published of a record, as the library decodes it.
#include "service/publishing/texts.h"

#include <string>

#include <gtest/gtest.h>

#include <vantro/platform/json.h>

namespace vantro {

namespace {

std::string times(const std::string &text, int count) {
    std::string all;
    for (int i = 0; i < count; ++i)
        all += text;
    return all;
}

TEST(Texts, AreCutBetweenCharactersAndNeverLost) {
    const struct {
        std::string title;
        std::string artist;
        std::size_t title_least; // bytes of it that must be there
        std::size_t artist_least;
    } rows[] = {
        {"T", "A", 1, 1},
        {"", times("a", 4096), 0, 1800},
        {times("\xC3\xA9", 2048), "A \"B\"", 1800, 5},
        {times("\xF0\x9F\x8E\xB5", 1024), times("\xE2\x82\xAC", 1365), 850, 850},
        {times("\"\\", 2048), times("\x01", 4096), 200, 200},
        {times("t", 300), times("a", 4096), 300, 1500},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.title.substr(0, 8) + row.artist.substr(0, 8));
        SongMetadata metadata;
        metadata.title = row.title;
        metadata.artist = row.artist;
        metadata.artwork = "file:///a.png";
        metadata.duration_ms = 7;
        std::string text = json_of(metadata);
        ASSERT_LT(text.size(), 2048u);
        EXPECT_TRUE(text.size() > 2000 || row.artist.size() + row.title.size() < 2000);
        kivo_decoder decoder;
        ASSERT_EQ(kivo_decoder_initialize(&decoder, text.data()), 0);
        kivo_decoder_push(&decoder, nullptr);
        const auto get = [&](const char *name) {
            const char *value = "";
            kivo_decoder_get_string(&decoder, name, &value);
            return std::string(value);
        };
        for (const auto &[name, whole, least] :
             {std::tuple("title", row.title, row.title_least),
              std::tuple("artist", row.artist, row.artist_least)}) {
            const std::string got = get(name);
            EXPECT_GE(got.size(), least);
            EXPECT_EQ(whole.compare(0, got.size(), got), 0);
            EXPECT_NE(whole[got.size()] & 0xC0, 0x80) << "cut within a character";
        }
        int32_t duration = 0;
        EXPECT_EQ(kivo_decoder_get_int(&decoder, "duration", &duration), 0);
        EXPECT_EQ(duration, 7);
        EXPECT_EQ(get("artwork"), "file:///a.png");
        kivo_decoder_cleanup(&decoder);
    }
    SongMetadata metadata;
    metadata.artwork = times("u", json_name_max + 1);
    EXPECT_EQ(json_of(metadata).find("artwork"), std::string::npos) << "cut, it is another one";
}

} // namespace

} // namespace vantro
