// Makes foreign texts valid and bounds their length.
#ifndef VANTRO_SERVICE_CATALOGUE_TEXT_UTF8_H
#define VANTRO_SERVICE_CATALOGUE_TEXT_UTF8_H

#include <cstddef>
#include <string>
#include <string_view>

namespace vantro::service::catalogue {

// Longest text taken from a tag, in bytes. A track reply has 65536 bytes for all data of a track;
// five tags and the names at this length fit easily.
inline constexpr size_t tag_text_max = 4096;

// Longest path as text, in bytes: one of the greatest length with every byte of it replaced.
inline constexpr size_t path_text_max = 3 * 4096;

// A valid UTF-8 copy: each invalid byte becomes U+FFFD. A NUL ends the text, since readers treat it
// as the end. The copy is cut at a character boundary to at most `limit` bytes.
std::string clean_text(std::string_view text, size_t limit);

// The same for a line of the log, in which a name must not begin another line or control a
// terminal. Control characters, also those beyond ASCII, bidirectional formatting characters and
// invalid bytes are written as \xNN or \u{NNNN}, and a backslash twice. At most path_text_max
// bytes.
std::string loggable(std::string_view text);

} // namespace vantro::service::catalogue

#endif
