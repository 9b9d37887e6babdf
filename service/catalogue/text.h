// Texts from outside: made valid, made short, and ordered as a person would.
#ifndef VANTRO_SERVICE_CATALOGUE_TEXT_H
#define VANTRO_SERVICE_CATALOGUE_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace vantro {

// Longest text taken from a tag, in bytes. A track reply offers 65536 bytes for everything that is
// known of a track; five tags and its names at this length leave room to spare.
inline constexpr std::size_t tag_text_max = 4096;

// Longest id, in bytes: a path of the greatest length with every byte of it replaced.
inline constexpr std::size_t track_id_max = 3 * 4096;

// A copy that is valid UTF-8: what is not becomes U+FFFD, one for each byte; a NUL ends the text,
// since readers take it for the end; it is cut between characters to at most `limit` bytes.
std::string clean_text(std::string_view text, std::size_t limit);

// Below, at or above zero as `a` sorts before, with or after `b`: runs of digits by their value,
// ASCII letters without regard to case. Texts that tie that way are ordered by their bytes, so
// that only equal texts compare equal.
int natural_compare(std::string_view a, std::string_view b);

} // namespace vantro

#endif
