// Parses the texts of attributes by the rules of the "C" locale. In the application's locale a rate
// may have a comma, or the lower case of "I" may not be "i".
#ifndef VANTRO_EVENTS_ATTRIBUTE_PARSING_H
#define VANTRO_EVENTS_ATTRIBUTE_PARSING_H

#include <locale.h>
#include <strings.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <limits>

namespace vantro::events {

inline locale_t c_locale() {
    // Never freed: the C library shares one object for this locale.
    static const locale_t locale = newlocale(LC_ALL_MASK, "C", nullptr);
    return locale;
}

// The number at the beginning of a text, or 0. A number out of range becomes the nearest one in
// range.
inline int32_t integer_of(const char *text) {
    using Limits = std::numeric_limits<int32_t>;
    return static_cast<int32_t>(
        std::clamp<long>(std::strtol(text, nullptr, 10), Limits::min(), Limits::max()));
}

inline float rate_of(const char *text) {
    return static_cast<float>(strtod_l(text, nullptr, c_locale()));
}

// Ignores case.
inline bool same_word(const char *a, const char *b) {
    return strcasecmp_l(a, b, c_locale()) == 0;
}

} // namespace vantro::events

#endif
