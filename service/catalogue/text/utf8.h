// Makes texts from outside valid and short.
#ifndef VANTRO_SERVICE_CATALOGUE_TEXT_UTF8_H
#define VANTRO_SERVICE_CATALOGUE_TEXT_UTF8_H

#include <cstddef>
#include <string>
#include <string_view>

namespace vantro::service::catalogue {

// Longest text taken from a tag, in bytes. A track reply offers 65536 bytes for everything that is
// known of a track; five tags and its names at this length leave room to spare.
inline constexpr size_t tag_text_max = 4096;

// Longest path as text, in bytes: one of the greatest length with every byte of it replaced.
inline constexpr size_t path_text_max = 3 * 4096;

// A copy that is valid UTF-8: each byte that is not becomes U+FFFD. A NUL ends the text, since
// readers take it for the end. The copy is cut between characters to at most `limit` bytes.
std::string clean_text(std::string_view text, size_t limit);

// The same for a line of the log, in which a name must not begin another line or command a
// terminal. Control characters, also those beyond ASCII, marks of writing direction and bytes that
// are no text are written as \xNN or \u{NNNN}, and a backslash twice. At most path_text_max bytes.
std::string loggable(std::string_view text);

} // namespace vantro::service::catalogue

#endif
