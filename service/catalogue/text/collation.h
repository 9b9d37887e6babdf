// The order of names, and which names count as the same.
#ifndef VANTRO_SERVICE_CATALOGUE_TEXT_COLLATION_H
#define VANTRO_SERVICE_CATALOGUE_TEXT_COLLATION_H

#include <cstddef>
#include <string>
#include <string_view>

namespace vantro::service::catalogue {

// Bytes whose plain order is the order of names that people expect: "Track 2" before "Track 10",
// case and accents only if nothing else differs, in every script. At most sort_key_max bytes.
std::string sort_key(std::string_view name);
inline constexpr size_t sort_key_max = 1024;

// Equal texts for names that people consider the same: case, the composition of accents and blanks
// around a name make no difference.
std::string folded(std::string_view name);

// Loads the tables that sort_key() and folded() need, so that no later call fails for lack of them.
// Throws an Error if they cannot be loaded. Both functions throw std::bad_alloc if there is no
// memory.
void set_up_collation();

} // namespace vantro::service::catalogue

#endif
