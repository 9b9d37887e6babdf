#include "tools/vantroctl/text/node_ref.h"

#include <charconv>

#include <fmt/format.h>

#include "tools/vantroctl/text/display_text.h"

namespace vantro::ctl {
namespace {

// Characters without a special meaning within a word in any shell.
bool is_plain(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           std::string_view("-._/:,+@").find(c) != std::string_view::npos;
}

int hex_digit(char c) {
    return c >= '0' && c <= '9'   ? c - '0'
           : c >= 'a' && c <= 'f' ? c - 'a' + 10
           : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                  : -1;
}

std::string decoded(std::string_view text) {
    std::string id;
    for (size_t i = 0; i < text.size(); ++i) {
        const int high = text[i] == '%' && i + 2 < text.size() ? hex_digit(text[i + 1]) : -1;
        const int low = high >= 0 ? hex_digit(text[i + 2]) : -1;
        if (low >= 0 && (high | low) != 0) { // no id holds a NUL
            id += static_cast<char>(high * 16 + low);
            i += 2;
        } else {
            id += text[i];
        }
    }
    return id;
}

} // namespace

std::string ref_text(int32_t source, std::string_view id) {
    std::string text = fmt::format("{}:", source);
    const bool showable = clean_text(id) == id;
    for (const char c : id) {
        const bool letter = static_cast<unsigned char>(c) >= 0x80 && showable;
        if (is_plain(c) || letter) {
            text += c;
        } else {
            text += fmt::format("%{:02X}", static_cast<unsigned char>(c));
        }
    }
    return text;
}

std::optional<int32_t> parse_source(std::string_view text) {
    int32_t source = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), source);
    const std::string_view rest = text.substr(static_cast<size_t>(end - text.data()));
    return error == std::errc() && (rest.empty() || rest == ":") ? std::optional(source)
                                                                 : std::nullopt;
}

NodeRef parse_ref(std::string_view text) {
    const size_t colon = text.find(':');
    if (colon != std::string_view::npos) {
        if (const auto source = parse_source(text.substr(0, colon + 1))) {
            return {source, decoded(text.substr(colon + 1))};
        }
    }
    return {std::nullopt, decoded(text)};
}

} // namespace vantro::ctl
