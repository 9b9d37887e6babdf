#include "service/catalogue/text/utf8.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include <vantro/platform/json.h>

#include "service/publishing/record_json.h"
#include "tests/support/failing_new.h"

namespace vantro::service::publishing {

namespace {

TEST(Text, IsMadeValidAndShort) {
    const std::string bad = "\xEF\xBF\xBD";
    const std::pair<std::string, std::string> table[] = {
        {"plain \xC3\xA9\xE2\x82\xAC\xF0\x9D\x84\x9E",
         "plain \xC3\xA9\xE2\x82\xAC\xF0\x9D\x84\x9E"},
        {"latin \xE9!", "latin " + bad + "!"},
        {"\xC0\xAF", bad + bad},                     // overlong
        {"\xED\xA0\x80", bad + bad + bad},           // half of a surrogate pair
        {"\xF4\x90\x80\x80", bad + bad + bad + bad}, // beyond the last character
        {"cut \xE2\x82", "cut " + bad + bad},
        {std::string("nul\0x", 5), "nul"},
    };
    for (const auto &[text, clean] : table) {
        EXPECT_EQ(catalogue::clean_text(text, 100), clean) << text;
    }
    EXPECT_EQ(catalogue::clean_text("ab\xE2\x82\xAC", 4), "ab") << "never half a character";
    EXPECT_EQ(catalogue::clean_text("ab\xFF", 4), "ab");
}

std::string times(const std::string &text, int count) {
    std::string all;
    for (int i = 0; i < count; ++i) {
        all += text;
    }
    return all;
}

TEST(PublishedTexts, AreCutBetweenCharactersAndNeverLost) {
    const struct {
        std::string title;
        std::string artist;
        size_t least; // bytes of each that must be there, where it has as many
    } rows[] = {
        {"T", "A", 1},
        {"", times("a", 4096), 1800},
        {times("\xC3\xA9", 2048), "A \"B\"", 1800},
        {times("\xF0\x9F\x8E\xB5", 1024), times("\xE2\x82\xAC", 1365), 850},
        {times("\"\\", 2048), times("\x01", 4096), 200},
        {times("t", 300), times("a", 4096), 1500},
    };
    for (const auto &row : rows) {
        catalogue::SongMetadata metadata;
        metadata.title = row.title;
        metadata.artist = row.artist;
        metadata.artwork = "file:///a.png";
        std::string text = json_of(metadata);
        EXPECT_LT(text.size(), 2048u);
        kivo_decoder decoder;
        ASSERT_EQ(kivo_decoder_initialize(&decoder, text.data()), 0);
        kivo_decoder_push(&decoder, nullptr);
        for (const auto &[name, whole] :
             {std::pair("title", row.title), std::pair("artist", row.artist),
              std::pair("artwork", metadata.artwork)}) {
            const char *got = "";
            kivo_decoder_get_string(&decoder, name, &got);
            EXPECT_GE(std::strlen(got), std::min(row.least, whole.size())) << name;
            EXPECT_EQ(whole.rfind(got, 0), 0u) << name;
            EXPECT_NE(whole[std::strlen(got)] & 0xC0, 0x80) << name << " is cut within a character";
        }
        kivo_decoder_cleanup(&decoder);
    }
    catalogue::SongMetadata metadata;
    metadata.artwork = times("u", json_name_max + 1);
    EXPECT_EQ(json_of(metadata).find("artwork"), std::string::npos) << "cut, it is another one";
}

TEST(PublishedTexts, WithoutMemoryThereIsNoneRatherThanHalfOfOne) {
    catalogue::SongMetadata metadata;
    metadata.title = times("t", 300);
    metadata.artist = times("a", 4096);
    const std::string whole = json_of(metadata);
    int failures = 0;
    for (bool failed = true; failed; ++failures) {
        failed = false;
        test::news_left = failures;
        try {
            EXPECT_EQ(json_of(metadata), whole);
        } catch (const std::bad_alloc &) {
            failed = true;
        }
        test::news_left = -1;
    }
    EXPECT_GT(failures, 5);
}

} // namespace

} // namespace vantro::service::publishing
