// Words, as a search finds them.
#ifndef VANTRO_SERVICE_CATALOGUE_TEXT_SEARCH_WORDS_H
#define VANTRO_SERVICE_CATALOGUE_TEXT_SEARCH_WORDS_H

#include <string>
#include <string_view>

namespace vantro::service::catalogue {

// The words of a text with a blank between them, the same for texts that a search should not tell
// apart: folded as names are (see folded()), without accents. Letters and digits make words; so
// does each character of a script that is written without blanks, and each picture. What stands
// between blanks and has neither letter nor digit is a word of symbols, apart from quotation marks.
//
// Both sides of a search go through this: what is searched, and the term. The result has no ASCII
// characters but letters, digits and blanks. Throws std::bad_alloc.
std::string search_words(std::string_view text);

} // namespace vantro::service::catalogue

#endif
