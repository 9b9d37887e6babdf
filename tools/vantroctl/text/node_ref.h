// Nodes as the tool prints and reads them: "SOURCE:ID".
//
// Whatever bytes an id has, its printed form is one word to a shell, safe on a terminal, and names
// the same node when it is pasted: unsafe bytes are written as % and two hexadecimal digits.
#ifndef VANTRO_TOOLS_VANTROCTL_TEXT_NODE_REF_H
#define VANTRO_TOOLS_VANTROCTL_TEXT_NODE_REF_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vantro::ctl {

struct NodeRef {
    std::optional<int32_t> source; // Nothing if only an id was written.
    std::string id;                // The service's id, decoded; "" is a source's top.
};

// "1:album/7"; "1:" for the top of a source.
std::string ref_text(int32_t source, std::string_view id);

// Reads what ref_text() writes, or an id alone. Digits and a colon in front are always a source.
// A % without two hexadecimal digits after it stands for itself.
NodeRef parse_ref(std::string_view text);

// A source's number, with or without a colon after it.
std::optional<int32_t> parse_source(std::string_view text);

} // namespace vantro::ctl

#endif
