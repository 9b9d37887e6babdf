// The parts of answers, appended as they travel.
#ifndef VANTRO_SERVICE_REQUESTS_PACKING_H
#define VANTRO_SERVICE_REQUESTS_PACKING_H

#include <cstddef>
#include <string>
#include <vector>

#include "service/catalogue/catalogue.h"
#include "service/requests/packed_lists.h"

namespace vantro::service::requests {

// Longest answer. Half a million nodes fit; more are asked for in several requests.
inline constexpr size_t answer_max = size_t{64} << 20;

template <typename Value>
void append(Bytes &answer, const Value &value) {
    const auto *begin = reinterpret_cast<const unsigned char *>(&value);
    answer.insert(answer.end(), begin, begin + sizeof value);
}

// Each returns 0, or EMSGSIZE if the answer would be longer than answer_max; it must then not be
// used. An empty text is an absent one.

// A record count and the records.
int append_sources(Bytes &answer, const std::vector<catalogue::Source> &sources);
// The records alone.
int append_nodes(Bytes &answer, const catalogue::Node *nodes, size_t count);
int append_metadata(Bytes &answer, const catalogue::SongMetadata *metadata, size_t count);
// Each with its length.
int append_texts(Bytes &answer, const std::vector<std::string> &texts);

// Keeps the nodes that it is given.
class NodeCollector : public catalogue::NodeSink {
  public:
    bool take(const catalogue::NodeRow &node) override;

    std::vector<catalogue::Node> nodes;
};

// Appends a record count and the nodes that it is given. The answer is complete after finish(),
// which returns 0 or EMSGSIZE.
class NodePacker : public catalogue::NodeSink {
  public:
    // Borrows both. Long listings are taken from `kept`, and kept there.
    NodePacker(Bytes &answer, PackedLists &kept);
    bool has(const std::string &listing, size_t count) override;
    void expect(size_t count) override;
    bool take(const catalogue::NodeRow &node) override;
    int finish();

  private:
    void make_room(size_t size);

    Bytes &answer_;
    PackedLists &kept_;
    std::string listing_; // its name, where it is to be kept
    const size_t begin_;
    size_t end_; // of what is packed; after it the answer has spare room
    int32_t count_ = 0;
    bool too_long_ = false;
    std::string id_; // both as the packers want them, with a NUL
    std::string name_;
};

} // namespace vantro::service::requests

#endif
