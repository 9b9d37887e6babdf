// Splits a text into the words that a search compares.
#ifndef VANTRO_SERVICE_CATALOGUE_TEXT_SEARCH_WORDS_H
#define VANTRO_SERVICE_CATALOGUE_TEXT_SEARCH_WORDS_H

#include <string>
#include <string_view>

namespace vantro::service::catalogue {

// The words of a text with a blank between them. Texts that a search treats as equal have equal
// words: they are folded like names (see folded()), and accents are removed. Letters and digits
// form words. In a script that is written without blanks, each character is a word; so is each
// emoji. Symbols between blanks, without letter or digit, form a word, from which quotation marks
// are removed.
//
// Both the texts that are searched and the search term go through this. The result has no ASCII
// characters except letters, digits and blanks. Throws std::bad_alloc.
std::string search_words(std::string_view text);

} // namespace vantro::service::catalogue

#endif
