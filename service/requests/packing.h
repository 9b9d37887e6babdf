// The parts of answers, appended as they travel.
#ifndef VANTRO_SERVICE_REQUESTS_PACKING_H
#define VANTRO_SERVICE_REQUESTS_PACKING_H

#include <cstddef>
#include <string>
#include <vector>

#include "service/catalogue/catalogue.h"

namespace vantro {

using Bytes = std::vector<unsigned char>;

// Longest answer. Half a million nodes fit; more are asked for in several requests.
inline constexpr std::size_t answer_max = std::size_t{64} << 20;

template <typename Value>
void append(Bytes &answer, const Value &value) {
    const auto *begin = reinterpret_cast<const unsigned char *>(&value);
    answer.insert(answer.end(), begin, begin + sizeof value);
}

// Each returns 0, or EMSGSIZE where the answer would be longer than answer_max; it is then of no
// use. An empty text is an absent one.

// A record count and the records.
int append_sources(Bytes &answer, const std::vector<Source> &sources);
int append_nodes(Bytes &answer, const std::vector<Node> &nodes);
// The records alone.
int append_node(Bytes &answer, const Node &node);
int append_metadata(Bytes &answer, const SongMetadata &metadata);
// Each with its length.
int append_texts(Bytes &answer, const std::vector<std::string> &texts);

} // namespace vantro

#endif
