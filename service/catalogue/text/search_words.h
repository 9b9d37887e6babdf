// The words of a text, as a search finds them.
#ifndef VANTRO_SERVICE_CATALOGUE_TEXT_SEARCH_WORDS_H
#define VANTRO_SERVICE_CATALOGUE_TEXT_SEARCH_WORDS_H

#include <string>
#include <string_view>

namespace vantro::service::catalogue {

// The words of a text with a blank between them. Texts that a search takes for the same give the
// same words: folded as names are (see folded()), and without accents. Letters and digits make
// words. Each character of a script that is written without blanks is a word, and so is each emoji.
// Symbols between blanks, without letter or digit, make a word; quotation marks are left out of it.
//
// Both the texts that are searched and the search term go through this. The result has no ASCII
// characters except letters, digits and blanks. Throws std::bad_alloc.
std::string search_words(std::string_view text);

} // namespace vantro::service::catalogue

#endif
