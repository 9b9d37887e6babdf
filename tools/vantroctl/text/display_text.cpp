#include "tools/vantroctl/text/display_text.h"

#include <algorithm>
#include <clocale>
#include <cstring>
#include <cwchar>
#include <langinfo.h>

namespace vantro::ctl {
namespace {

constexpr char32_t replacement = 0xFFFD;
constexpr std::string_view replacement_text = "\xEF\xBF\xBD";
constexpr std::string_view ellipsis = "\xE2\x80\xA6";

struct Character {
    char32_t code;
    size_t length; // Bytes it takes in the text, at least 1.
    bool valid;
};

// The character at the start of `text`, which is not empty.
Character first_character(std::string_view text) {
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(0);
    if (lead < 0x80) {
        return {lead, 1, true};
    }
    const size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4) {
        return {replacement, 1, false};
    }
    char32_t code = lead & (0x7Fu >> length);
    for (size_t i = 1; i < length; ++i) {
        if (i >= text.size() || (byte(i) & 0xC0) != 0x80) {
            return {replacement, i, false};
        }
        code = (code << 6) | (byte(i) & 0x3Fu);
    }
    const bool overlong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
    const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
    if (overlong || surrogate || code > 0x10FFFF) {
        return {replacement, length, false};
    }
    return {code, length, true};
}

bool is_blank(char32_t code) {
    return code == ' ' || (code >= '\t' && code <= '\r') || code == 0x85 || code == 0x2028 ||
           code == 0x2029;
}

bool turns_direction(char32_t code) {
    return code == 0x061C || code == 0x200E || code == 0x200F ||
           (code >= 0x202A && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
}

// Columns of a character, -1 for one that cannot be shown.
int width_of(char32_t code) {
    if (code == 0) {
        return -1; // wcwidth() takes it for the end of a text.
    }
    return code == replacement ? 1 : wcwidth(static_cast<wchar_t>(code));
}

} // namespace

void use_display_locale() {
    // Tags are UTF-8 whatever the locale is; one that is not knows no width beyond ASCII.
    if (!std::setlocale(LC_CTYPE, "") || std::strcmp(nl_langinfo(CODESET), "UTF-8") != 0) {
        std::setlocale(LC_CTYPE, "C.UTF-8");
    }
}

std::string valid_text(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const Character character = first_character(text);
        result += character.valid ? text.substr(0, character.length) : replacement_text;
        text.remove_prefix(character.length);
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
    size_t blank = 0; // Behind the last blank of this line.
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
