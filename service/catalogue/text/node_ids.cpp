#include "service/catalogue/text/node_ids.h"

#include <array>
#include <charconv>
#include <iterator>
#include <string>

#include "service/catalogue/text/digest.h"

namespace vantro::service::catalogue {

int64_t key_of(Kind kind, std::string_view identity, int salt) {
    std::string text(1, kind);
    if (salt != 0) {
        text += std::to_string(salt);
    }
    text += '\0';
    text += identity;
    const std::array<uint8_t, 32> bytes = sha256(text);
    uint64_t key = 0;
    for (int i = 0; i < 8; ++i) {
        key = key << 8 | bytes[i];
    }
    return static_cast<int64_t>(key);
}

NodeId::NodeId(Kind kind, int64_t key) {
    text_[0] = kind;
    if (kind == kind_year) {
        size_ = static_cast<size_t>(std::to_chars(text_ + 1, std::end(text_), key).ptr - text_);
        return;
    }
    size_ = 17;
    auto rest = static_cast<uint64_t>(key);
    for (size_t at = 16; at > 0; --at, rest >>= 4) {
        text_[at] = "0123456789abcdef"[rest & 15];
    }
}

std::optional<NodeRef> parse_node_id(std::string_view id) {
    constexpr size_t longest = 1 + 16;
    if (id.size() < 2 || id.size() > longest) {
        return std::nullopt;
    }
    const char *end = id.data() + id.size();
    if (id[0] == kind_year) {
        int64_t year = 0;
        const auto [stop, error] = std::from_chars(id.data() + 1, end, year);
        if (error != std::errc() || stop != end || NodeId(kind_year, year).text() != id) {
            return std::nullopt;
        }
        return NodeRef{kind_year, year};
    }
    if (std::string_view("abfgps").find(id[0]) == std::string_view::npos || id.size() != longest) {
        return std::nullopt;
    }
    const auto kind = static_cast<Kind>(id[0]);
    uint64_t key = 0;
    const auto [stop, error] = std::from_chars(id.data() + 1, end, key, 16);
    if (error != std::errc() || stop != end ||
        NodeId(kind, static_cast<int64_t>(key)).text() !=
            id) { // "AB" would name the same node as "ab"
        return std::nullopt;
    }
    return NodeRef{kind, static_cast<int64_t>(key)};
}

} // namespace vantro::service::catalogue
