// Parses the lines of a change text without unescaping them.
#ifndef VANTRO_PLATFORM_PORTABLE_CHANGE_LINE_H
#define VANTRO_PLATFORM_PORTABLE_CHANGE_LINE_H

#include <cstring>
#include <string_view>
#include <type_traits>

#include <vantro/platform/change.h>

namespace vantro::platform {

// The number in an enumeration that a C caller has set. C allows numbers that are not values of the
// enumeration. In C++ loading such an enumeration is undefined, so its bytes are copied instead.
template <class Enumeration>
std::underlying_type_t<Enumeration> number_of(const Enumeration &value) {
    std::underlying_type_t<Enumeration> number;
    std::memcpy(&number, &value, sizeof number);
    return number;
}

bool is_encoding(const kivo_encoding &encoding);

bool is_object_name(std::string_view name);

// An object's line. `result` is KIVO_END for a line of another kind, KIVO_ERROR for a malformed
// one.
struct ObjectLine {
    kivo_result result = KIVO_END;
    std::string_view name;
};
ObjectLine parse_object_line(std::string_view line);

// An attribute's line, still escaped. The name is empty if the line is malformed.
struct AttributeLine {
    bool is_set = false; // false: the attribute is deleted
    std::string_view name;
    std::string_view encoding;
    std::string_view value;
};
AttributeLine parse_attribute_line(std::string_view line);

} // namespace vantro::platform

#endif
