// Words that users search for.
#ifndef VANTRO_TOOLS_VANTROCTL_TEXT_WORDS_H
#define VANTRO_TOOLS_VANTROCTL_TEXT_WORDS_H

#include <string>
#include <vector>

namespace vantro::ctl {

// Whether a text contains all words, also as parts of words; upper and lower case are equal.
bool has_words(const std::string &text, const std::vector<std::string> &words);

} // namespace vantro::ctl

#endif
