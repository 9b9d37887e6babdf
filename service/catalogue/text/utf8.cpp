#include "service/catalogue/text/utf8.h"

#include <cstdint>

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

} // namespace vantro::service::catalogue
