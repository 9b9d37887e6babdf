// Change texts: parsing in place, and writing.
//
// A whole line is checked before a byte of it is changed, so a line that cannot be parsed is
// unchanged.
#include <vantro/platform/change.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "platform/portable/change_line.h"
#include "platform/portable/guards.h"

namespace vantro::platform {

namespace {

constexpr std::string_view sigils = "@+-#";
constexpr std::array<std::string_view, 4> encodings = {"", "n", "b", "json"};

enum class Escapes { of_a_value, of_a_name };

// The character that an escape stands for; NUL if there is no such escape.
char unescaped(char escape, Escapes kind, bool first) {
    switch (escape) {
    case '\\':
        return '\\';
    case 'n':
        return '\n';
    case 'r':
        return '\r';
    case 't':
        return '\t';
    case ':':
        return kind == Escapes::of_a_name ? ':' : '\0';
    default:
        return kind == Escapes::of_a_name && first && sigils.find(escape) != sigils.npos ? escape
                                                                                         : '\0';
    }
}

bool may_be_unescaped(std::string_view text, Escapes kind) {
    for (size_t i = 0; i < text.size(); ++i) {
        // Long values have few escapes: find() skips the bytes in between.
        if (kind == Escapes::of_a_value && (i = text.find('\\', i)) == text.npos) {
            return true;
        }
        if (text[i] == '\\') {
            if (i + 1 == text.size() || unescaped(text[i + 1], kind, i == 0) == '\0') {
                return false;
            }
            ++i;
        } else if (text[i] == ':' && kind == Escapes::of_a_name) {
            return false;
        }
    }
    return true;
}

// Unescapes in place and ends the text with a NUL. There is room: a separator follows every text.
char *unescape(char *text, size_t length, Escapes kind) {
    char *to = static_cast<char *>(std::memchr(text, '\\', length));
    if (!to) {
        text[length] = '\0';
        return text;
    }
    for (const char *from = to, *const end = text + length; from < end; ++from) {
        if (*from == '\\') {
            ++from;
            *to++ = unescaped(*from, kind, from == text + 1);
        } else {
            *to++ = *from;
        }
    }
    *to = '\0';
    return text;
}

// Parses one line without its newline.
kivo_result parse_line(char *start, size_t length, kivo_record &record) {
    const std::string_view line(start, length);
    const ObjectLine object = parse_object_line(line);
    if (object.result > KIVO_END) {
        record.object = start + (length - object.name.size());
        start[length] = '\0';
        return object.result;
    }
    if (object.result == KIVO_ERROR) {
        return KIVO_ERROR;
    }
    const AttributeLine attribute = parse_attribute_line(line);
    if (attribute.name.empty() || !may_be_unescaped(attribute.name, Escapes::of_a_name) ||
        !may_be_unescaped(attribute.value, Escapes::of_a_value)) {
        return KIVO_ERROR;
    }
    char *const name = start + (attribute.name.data() - line.data());
    if (!attribute.is_set) {
        record.attribute = unescape(name, attribute.name.size(), Escapes::of_a_name);
        return KIVO_ATTRIBUTE_DELETED;
    }
    const auto *const encoding = std::find(encodings.begin(), encodings.end(), attribute.encoding);
    if (encoding == encodings.end()) {
        return KIVO_ERROR;
    }
    record.encoding = static_cast<kivo_encoding>(encoding - encodings.begin());
    record.attribute = unescape(name, attribute.name.size(), Escapes::of_a_name);
    record.value = unescape(start + (attribute.value.data() - line.data()), attribute.value.size(),
                            Escapes::of_a_value);
    return KIVO_ATTRIBUTE;
}

void write_bytes(kivo_writer &writer, std::string_view bytes) {
    if (writer.error != 0) {
        return;
    }
    // One byte is left for the NUL.
    if (bytes.size() >= writer.capacity - writer.length) {
        writer.error = EMSGSIZE;
        return;
    }
    std::memcpy(writer.text + writer.length, bytes.data(), bytes.size());
    writer.length += bytes.size();
}

// Characters that may need an escape; a table, since it is used for each byte.
constexpr std::array<bool, 256> may_need_escape = [] {
    std::array<bool, 256> table = {};
    for (const char c : {'\\', '\n', '\r', '\t', ':', '@', '+', '-', '#'}) {
        table[static_cast<unsigned char>(c)] = true;
    }
    return table;
}();

void write_escaped(kivo_writer &writer, std::string_view text, Escapes kind) {
    size_t plain = 0; // start of the bytes not written yet
    for (size_t i = 0; i < text.size(); ++i) {
        if (!may_need_escape[static_cast<unsigned char>(text[i])]) {
            continue;
        }
        char escape[2] = {'\\', text[i]};
        if (text[i] == '\n') {
            escape[1] = 'n';
        } else if (text[i] == '\r') {
            escape[1] = 'r';
        } else if (text[i] == '\t') {
            escape[1] = 't';
        } else if (unescaped(text[i], kind, i == 0) != text[i]) {
            continue;
        }
        write_bytes(writer, text.substr(plain, i - plain));
        write_bytes(writer, {escape, 2});
        plain = i + 1;
    }
    write_bytes(writer, text.substr(plain));
}

// Whether the writer can continue. Bad arguments set its error to EINVAL.
bool accepts(kivo_writer *writer, bool good) {
    if (writer && writer->error == 0 && !good) {
        writer->error = EINVAL;
    }
    return writer && writer->error == 0;
}

} // namespace

bool is_encoding(const kivo_encoding &encoding) {
    return static_cast<size_t>(number_of(encoding)) < encodings.size();
}

bool is_object_name(std::string_view name) {
    return !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
               c == '.' || c == '_' || c == '-';
    });
}

ObjectLine parse_object_line(std::string_view line) {
    kivo_result result = KIVO_OBJECT;
    if (line.starts_with('+')) {
        result = KIVO_OBJECT_CREATED;
    } else if (line.starts_with("-@")) {
        result = KIVO_OBJECT_DELETED;
    } else if (line.starts_with('#')) {
        result = KIVO_OBJECT_TRUNCATED;
    } else if (!line.starts_with('@')) {
        return {};
    }
    if (result != KIVO_OBJECT) {
        line.remove_prefix(1);
    }
    if (!line.starts_with('@') || !is_object_name(line.substr(1))) {
        return {KIVO_ERROR, {}};
    }
    return {result, line.substr(1)};
}

AttributeLine parse_attribute_line(std::string_view line) {
    if (line.starts_with('-')) {
        return {false, line.substr(1), {}, {}};
    }
    if (line.empty() || sigils.find(line[0]) != sigils.npos) {
        return {};
    }
    size_t colon = 0;
    while (colon < line.size() && line[colon] != ':') {
        colon += line[colon] == '\\' ? 2 : 1;
    }
    if (colon >= line.size()) {
        return {};
    }
    const size_t second = line.find(':', colon + 1);
    if (second == line.npos) {
        return {};
    }
    return {true, line.substr(0, colon), line.substr(colon + 1, second - colon - 1),
            line.substr(second + 1)};
}

} // namespace vantro::platform

using namespace vantro::platform;

int kivoparse(char **cursor, const char *object, const char *attribute, struct kivo_record *record,
              int flags) {
    if (!cursor || !*cursor || !record || flags != 0) {
        return KIVO_ERROR;
    }
    while (**cursor != '\0') {
        char *const line = *cursor;
        char *const end = std::strchr(line, '\n');
        if (!end) {
            return KIVO_ERROR;
        }
        record->attribute = nullptr;
        record->value = nullptr;
        record->encoding = KIVO_TEXT;
        const kivo_result result = parse_line(line, static_cast<size_t>(end - line), *record);
        if (result == KIVO_ERROR) {
            return result;
        }
        *cursor = end + 1;
        const bool object_wanted =
            !object || (record->object && std::strcmp(record->object, object) == 0);
        const bool attribute_wanted =
            !attribute || !record->attribute || std::strcmp(record->attribute, attribute) == 0;
        if (object_wanted && attribute_wanted) {
            return result;
        }
    }
    return KIVO_END;
}

void kivo_writer_init(struct kivo_writer *writer, char *text, size_t capacity) {
    *writer = {text, capacity, 0, text && capacity > 0 ? 0 : EMSGSIZE};
}

void kivo_write_object(struct kivo_writer *writer, enum kivo_result line, const char *name) {
    const auto number = number_of(line);
    if (!accepts(writer, name && is_object_name(name) && number >= KIVO_OBJECT &&
                             number <= KIVO_OBJECT_TRUNCATED)) {
        return;
    }
    constexpr std::array<std::string_view, 4> starts = {"@", "+@", "-@", "#@"};
    write_bytes(*writer, starts[static_cast<size_t>(number - KIVO_OBJECT)]);
    write_bytes(*writer, name);
    write_bytes(*writer, "\n");
}

void kivo_write_attribute(struct kivo_writer *writer, const char *name, enum kivo_encoding encoding,
                          const char *value) {
    if (!accepts(writer, name && *name && value && is_encoding(encoding))) {
        return;
    }
    write_escaped(*writer, name, Escapes::of_a_name);
    write_bytes(*writer, ":");
    write_bytes(*writer, encodings[static_cast<size_t>(encoding)]);
    write_bytes(*writer, ":");
    write_escaped(*writer, value, Escapes::of_a_value);
    write_bytes(*writer, "\n");
}

void kivo_write_attribute_deleted(struct kivo_writer *writer, const char *name) {
    if (!accepts(writer, name && *name)) {
        return;
    }
    write_bytes(*writer, "-");
    write_escaped(*writer, name, Escapes::of_a_name);
    write_bytes(*writer, "\n");
}

ssize_t kivo_writer_finish(struct kivo_writer *writer) {
    if (!writer) {
        return fail(EINVAL);
    }
    if (writer->text && writer->capacity > 0) {
        writer->text[writer->length] = '\0';
    }
    return writer->error == 0 ? static_cast<ssize_t>(writer->length) : fail(writer->error);
}
