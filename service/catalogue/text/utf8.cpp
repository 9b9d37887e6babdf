#include "service/catalogue/text/utf8.h"

#include <algorithm>
#include <cstdint>

#include <fmt/format.h>

namespace vantro::service::catalogue {

namespace {

constexpr std::string_view replacement = "\xEF\xBF\xBD";

unsigned char byte_at(std::string_view text, size_t at) {
    return static_cast<unsigned char>(text[at]);
}

// Bytes of the well-formed character at `at`, or 0. Overlong forms, surrogates and values beyond
// U+10FFFF are not well formed: readers that decode strictly would refuse the whole reply.
size_t character_length(std::string_view text, size_t at) {
    const unsigned char lead = byte_at(text, at);
    if (lead < 0x80) {
        return 1;
    }
    size_t length = 0;
    uint32_t value = 0;
    uint32_t least = 0;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
        value = lead & 0x1Fu;
        least = 0x80;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        value = lead & 0x0Fu;
        least = 0x800;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        value = lead & 0x07u;
        least = 0x10000;
    } else {
        return 0;
    }
    if (text.size() - at < length) {
        return 0;
    }
    for (size_t i = 1; i < length; ++i) {
        const unsigned char next = byte_at(text, at + i);
        if ((next & 0xC0u) != 0x80u) {
            return 0;
        }
        value = value << 6 | (next & 0x3Fu);
    }
    const bool surrogate = value >= 0xD800 && value <= 0xDFFF;
    return value < least || surrogate || value > 0x10FFFF ? 0 : length;
}

// Of a well-formed character of several bytes.
uint32_t value_of(std::string_view character) {
    uint32_t value = byte_at(character, 0) & (0x7Fu >> character.size());
    for (size_t i = 1; i < character.size(); ++i) {
        value = value << 6 | (byte_at(character, i) & 0x3Fu);
    }
    return value;
}

// C1 controls, line and paragraph separators, and characters that turn the direction of writing.
bool acts_on_terminals(uint32_t value) {
    return (value >= 0x80 && value <= 0x9F) || value == 0x061C || value == 0x200E ||
           value == 0x200F || (value >= 0x2028 && value <= 0x202E) ||
           (value >= 0x2066 && value <= 0x2069);
}

} // namespace

std::string clean_text(std::string_view text, size_t limit) {
    text = text.substr(0, text.find('\0'));
    std::string clean;
    clean.reserve(text.size() < limit ? text.size() : limit);
    for (size_t at = 0; at < text.size();) {
        const size_t length = character_length(text, at);
        const std::string_view character = length == 0 ? replacement : text.substr(at, length);
        if (clean.size() + character.size() > limit) {
            break;
        }
        clean += character;
        at += length == 0 ? 1 : length;
    }
    return clean;
}

std::string loggable(std::string_view text) {
    std::string line;
    for (size_t at = 0; at < text.size();) {
        const size_t length = text[at] == '\0' ? 0 : character_length(text, at);
        const std::string_view character = text.substr(at, std::max<size_t>(length, 1));
        std::string shown(character);
        if (length <= 1) {
            const unsigned char byte = byte_at(text, at);
            if (length == 0 || byte < 0x20 || byte == 0x7F) {
                shown = fmt::format("\\x{:02X}", byte);
            } else if (byte == '\\') {
                shown = "\\\\";
            }
        } else if (const uint32_t value = value_of(character); acts_on_terminals(value)) {
            shown = fmt::format("\\u{{{:04X}}}", value);
        }
        if (line.size() + shown.size() > path_text_max) {
            break;
        }
        line += shown;
        at += character.size();
    }
    return line;
}

} // namespace vantro::service::catalogue
