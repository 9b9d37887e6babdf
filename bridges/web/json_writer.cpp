#include "bridges/web/json_writer.h"

namespace vantro::web {
namespace {

// Bytes of the character that the text begins with; 0 where it is malformed.
size_t character_length(std::string_view text) {
    const auto byte = [text](size_t at) {
        return at < text.size() ? static_cast<unsigned char>(text[at]) : 0u;
    };
    const unsigned first = byte(0);
    const size_t length = first < 0x80                    ? 1
                          : first >= 0xc2 && first < 0xe0 ? 2
                          : first >= 0xe0 && first < 0xf0 ? 3
                          : first >= 0xf0 && first < 0xf5 ? 4
                                                          : 0;
    for (size_t at = 1; at < length; ++at) {
        if ((byte(at) & 0xc0) != 0x80) {
            return 0;
        }
    }
    const bool overlong = (first == 0xe0 && byte(1) < 0xa0) || (first == 0xf0 && byte(1) < 0x90);
    const bool surrogate = first == 0xed && byte(1) > 0x9f;
    const bool beyond = first == 0xf4 && byte(1) > 0x8f;
    return overlong || surrogate || beyond ? 0 : length;
}

} // namespace

std::string valid_utf8(std::string_view text) {
    std::string valid;
    valid.reserve(text.size());
    while (!text.empty()) {
        const size_t length = character_length(text);
        if (length == 0) {
            valid += "\xef\xbf\xbd";
        } else {
            valid += text.substr(0, length);
        }
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return valid;
}

} // namespace vantro::web
