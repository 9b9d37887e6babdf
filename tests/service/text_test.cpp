#include "service/catalogue/text.h"

#include <string>
#include <utility>

#include <gtest/gtest.h>

namespace vantro {

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
    for (const auto &[text, clean] : table)
        EXPECT_EQ(clean_text(text, 100), clean) << text;
    EXPECT_EQ(clean_text("ab\xE2\x82\xAC", 4), "ab") << "never half a character";
    EXPECT_EQ(clean_text("ab\xFF", 4), "ab");
}

} // namespace

} // namespace vantro
