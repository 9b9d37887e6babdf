#include "tools/vantroctl/text/display_text.h"

#include <algorithm>

#include <fmt/format.h>
#include <unicode/uchar.h>
#include <unicode/utf16.h>
#include <unicode/utf8.h>

namespace vantro::ctl {
namespace {

constexpr UChar32 replacement = 0xFFFD;
constexpr std::string_view replacement_text = "\xEF\xBF\xBD";
constexpr std::string_view ellipsis = "\xE2\x80\xA6";
constexpr UChar32 soft_hyphen = 0xAD;

struct Character {
    UChar32 code;  // U+FFFD if the bytes are not UTF-8.
    size_t length; // Its bytes in the text, at least 1.
    bool valid;
};

// The character at the start of `text`, which is not empty.
Character first_character(std::string_view text) {
    const auto size = static_cast<int32_t>(std::min<size_t>(text.size(), U8_MAX_LENGTH));
    int32_t length = 0;
    UChar32 code = 0;
    U8_NEXT(text.data(), length, size, code);
    return {code < 0 ? replacement : code, static_cast<size_t>(length), code >= 0};
}

bool is_blank(UChar32 code) {
    return u_isUWhiteSpace(code);
}

bool turns_direction(UChar32 code) {
    return u_hasBinaryProperty(code, UCHAR_BIDI_CONTROL);
}

// Columns of a character, -1 for one that cannot be shown.
int width_of(UChar32 code) {
    switch (u_charType(code)) {
    case U_CONTROL_CHAR:
    case U_LINE_SEPARATOR:
    case U_PARAGRAPH_SEPARATOR:
    case U_SURROGATE:
    case U_UNASSIGNED:
        return -1;
    case U_NON_SPACING_MARK:
    case U_ENCLOSING_MARK:
        return 0;
    case U_FORMAT_CHAR:
        return code == soft_hyphen ? 1 : 0;
    default:
        break;
    }
    const int syllable = u_getIntPropertyValue(code, UCHAR_HANGUL_SYLLABLE_TYPE);
    if (syllable == U_HST_VOWEL_JAMO || syllable == U_HST_TRAILING_JAMO) {
        return 0; // Joins the consonant before it.
    }
    const int width = u_getIntPropertyValue(code, UCHAR_EAST_ASIAN_WIDTH);
    return width == U_EA_WIDE || width == U_EA_FULLWIDTH ? 2 : 1;
}

// Whether a terminal could obey the character, or a reader overlook it.
bool is_unsafe(UChar32 code) {
    return width_of(code) < 0 || u_charType(code) == U_FORMAT_CHAR;
}

} // namespace

std::string valid_text(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const Character character = first_character(text);
        result += character.valid ? text.substr(0, character.length) : replacement_text;
        text.remove_prefix(character.length);
    }
    return result;
}

std::string escape_unsafe(std::string_view json) {
    std::string result;
    while (!json.empty()) {
        const Character character = first_character(json);
        if (is_unsafe(character.code)) {
            char16_t units[U16_MAX_LENGTH];
            int32_t count = 0;
            U16_APPEND_UNSAFE(units, count, character.code);
            for (int32_t i = 0; i < count; ++i) {
                result += fmt::format("\\u{:04X}", uint32_t{units[i]});
            }
        } else {
            result += json.substr(0, character.length);
        }
        json.remove_prefix(character.length);
    }
    return result;
}

std::string clean_text(std::string_view text) {
    std::string result;
    int combined = 0;
    while (!text.empty()) {
        const Character character = first_character(text);
        const int width = turns_direction(character.code) ? -1 : width_of(character.code);
        combined = width == 0 ? combined + 1 : 0;
        if (is_blank(character.code)) {
            result += ' ';
        } else if (!character.valid || width < 0) {
            result += replacement_text;
        } else if (combined <= combining_max) {
            result += text.substr(0, character.length);
        }
        text.remove_prefix(character.length);
    }
    return result;
}

int display_width(std::string_view text) {
    int columns = 0;
    while (!text.empty()) {
        const Character character = first_character(text);
        columns += std::max(width_of(character.code), 0);
        text.remove_prefix(character.length);
    }
    return columns;
}

std::string clip_text(std::string_view text, int columns) {
    if (columns <= 0) {
        return {};
    }
    int used = 0;
    size_t position = 0;
    size_t cut = 0; // Where the text ends if an ellipsis follows.
    while (position < text.size()) {
        const Character character = first_character(text.substr(position));
        used += std::max(width_of(character.code), 0);
        if (used > columns) {
            return std::string(text.substr(0, cut)).append(ellipsis);
        }
        position += character.length;
        if (used < columns) {
            cut = position;
        }
    }
    return std::string(text);
}

std::vector<std::string> fold_text(std::string_view text, int columns) {
    std::vector<std::string> lines;
    int used = 0;
    size_t position = 0;
    size_t blank = 0; // Where the last blank of this line ends.
    while (position < text.size()) {
        const Character character = first_character(text.substr(position));
        const int width = std::max(width_of(character.code), 0);
        if (used + width > columns && position > 0) {
            const bool at_blank = character.code == ' ';
            const size_t end = at_blank || blank == 0 ? position : blank - 1;
            lines.emplace_back(text.substr(0, end));
            text.remove_prefix(at_blank || blank > 0 ? end + 1 : end);
            used = 0;
            position = blank = 0;
            continue;
        }
        used += width;
        position += character.length;
        blank = character.code == ' ' ? position : blank;
    }
    lines.emplace_back(text);
    return lines;
}

} // namespace vantro::ctl
