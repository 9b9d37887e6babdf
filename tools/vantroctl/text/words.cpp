#include "tools/vantroctl/text/words.h"

#include <algorithm>

#include <unicode/unistr.h>

namespace vantro::ctl {
namespace {

icu::UnicodeString folded(const std::string &text) {
    return icu::UnicodeString::fromUTF8(text).foldCase();
}

} // namespace

bool has_words(const std::string &text, const std::vector<std::string> &words) {
    const icu::UnicodeString in = folded(text);
    return std::all_of(words.begin(), words.end(),
                       [&](const std::string &word) { return in.indexOf(folded(word)) >= 0; });
}

} // namespace vantro::ctl
