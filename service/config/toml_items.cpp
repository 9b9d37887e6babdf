#include "service/config/toml_items.h"

#include <algorithm>
#include <istream>

#include <fmt/format.h>

#define TOML_HEADER_ONLY 1
#define TOML_ENABLE_FORMATTERS 0
#include <toml++/toml.h>

namespace vantro::service::config {

namespace {

size_t line_of(const toml::node &node) {
    return node.source().begin.line;
}

// A number in the file's spelling, with its base: only some options accept another base than ten.
std::string integer_text(const toml::value<int64_t> &value) {
    switch (value.flags()) {
    case toml::value_flags::format_as_octal:
        return fmt::format("0o{:o}", value.get());
    case toml::value_flags::format_as_hexadecimal:
        return fmt::format("{:#x}", value.get());
    case toml::value_flags::format_as_binary:
        return fmt::format("{:#b}", value.get());
    default:
        return fmt::format("{}", value.get());
    }
}

std::string value_text(const std::string &key, const toml::node &node) {
    if (const auto *text = node.as_string()) {
        return text->get();
    }
    if (const auto *number = node.as_integer()) {
        return integer_text(*number);
    }
    if (const auto *number = node.as_floating_point()) {
        return fmt::format("{}", number->get());
    }
    if (const auto *flag = node.as_boolean()) {
        return flag->get() ? "true" : "false";
    }
    if (node.is_table()) {
        throw TomlError(line_of(node), key + ": tables are not allowed in this file");
    }
    const char *kind = node.is_array() ? "a list within a list" : "a date or time";
    throw TomlError(line_of(node), fmt::format("{}: {} cannot be its value", key, kind));
}

TomlItem read_item(const std::string &key, size_t line, const toml::node &node) {
    TomlItem item{key, line, {}, false};
    if (const auto *list = node.as_array()) {
        item.is_list = true;
        for (const toml::node &each : *list) {
            item.values.push_back(value_text(key, each));
        }
    } else {
        item.values.push_back(value_text(key, node));
    }
    return item;
}

} // namespace

std::vector<TomlItem> read_toml(std::istream &input) {
    std::vector<TomlItem> items;
    try {
        const toml::table table = toml::parse(input);
        for (const auto &[key, node] : table) {
            items.push_back(read_item(std::string(key.str()), key.source().begin.line, node));
        }
    } catch (const toml::parse_error &error) {
        std::string text(error.description());
        if (text.ends_with("could not determine value type")) {
            text += "; texts need quotation marks";
        }
        throw TomlError(error.source().begin.line, text);
    }
    std::sort(items.begin(), items.end(),
              [](const TomlItem &a, const TomlItem &b) { return a.line < b.line; });
    return items;
}

std::string toml_text(const std::string &text) {
    std::string quoted = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            quoted += '\\';
            quoted += c;
        } else if (byte < 0x20 || byte == 0x7F) {
            quoted += fmt::format("\\u{:04X}", byte);
        } else {
            quoted += c;
        }
    }
    return quoted + '"';
}

} // namespace vantro::service::config
