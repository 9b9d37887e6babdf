#include "service/catalogue/text.h"

#include <vector>

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

TEST(Text, OrdersNaturally) {
    const std::vector<std::string> ordered = {
        "", "1", "2", "002a", "10", "a", "A1x", "a2", "A10", "a99999999999999999999", "b01", "b1"};
    for (std::size_t i = 0; i < ordered.size(); ++i)
        for (std::size_t j = 0; j < ordered.size(); ++j) {
            const int order = natural_compare(ordered[i], ordered[j]);
            EXPECT_EQ(order < 0, i < j) << ordered[i] << " and " << ordered[j];
            EXPECT_EQ(order == 0, i == j) << ordered[i] << " and " << ordered[j];
        }
}

} // namespace

} // namespace vantro
