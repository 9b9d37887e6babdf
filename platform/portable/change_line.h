// The lines of a change text as they lie there, escapes and all.
#ifndef VANTRO_PLATFORM_PORTABLE_CHANGE_LINE_H
#define VANTRO_PLATFORM_PORTABLE_CHANGE_LINE_H

#include <cstring>
#include <string_view>
#include <type_traits>

#include <vantro/platform/change.h>

namespace vantro::platform {

// The number in an enumeration that a caller filled, which may be none of its values: C allows
// that, and here it must be checked before it is used as one.
template <class Enumeration>
std::underlying_type_t<Enumeration> number_of(const Enumeration &value) {
    std::underlying_type_t<Enumeration> number;
    std::memcpy(&number, &value, sizeof number);
    return number;
}

bool is_encoding(const kivo_encoding &encoding);

bool is_object_name(std::string_view name);

// An object's line: KIVO_END where the line is none, KIVO_ERROR where it is a wrong one.
struct ObjectLine {
    kivo_result result = KIVO_END;
    std::string_view name;
};
ObjectLine parse_object_line(std::string_view line);

// An attribute's line, still escaped. No name where the line is wrong.
struct AttributeLine {
    bool is_set = false; // and not deleted
    std::string_view name;
    std::string_view encoding;
    std::string_view value;
};
AttributeLine parse_attribute_line(std::string_view line);

} // namespace vantro::platform

#endif
