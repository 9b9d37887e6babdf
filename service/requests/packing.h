// Appending the parts of answers in their packed form.
#ifndef VANTRO_SERVICE_REQUESTS_PACKING_H
#define VANTRO_SERVICE_REQUESTS_PACKING_H

#include <cstddef>
#include <string>
#include <vector>

#include "service/catalogue/catalogue.h"
#include "service/requests/packed_lists.h"

namespace vantro::service::requests {

// Longest answer. Half a million nodes fit; clients request more in several requests.
inline constexpr size_t answer_max = size_t{64} << 20;

template <typename Value>
void append(Bytes &answer, const Value &value) {
    const auto *begin = reinterpret_cast<const unsigned char *>(&value);
    answer.insert(answer.end(), begin, begin + sizeof value);
}

// Each returns 0, or EMSGSIZE if the answer would be longer than answer_max; the answer must then
// not be used. An empty text counts as absent.

// A record count and the records.
int append_sources(Bytes &answer, const std::vector<catalogue::Source> &sources);
// Only the records.
int append_nodes(Bytes &answer, const catalogue::Node *nodes, size_t count);
int append_metadata(Bytes &answer, const catalogue::SongMetadata *metadata, size_t count);
// Each text with its length.
int append_texts(Bytes &answer, const std::vector<std::string> &texts);

// Collects the nodes that it gets.
class NodeCollector : public catalogue::NodeSink {
  public:
    bool take(const catalogue::NodeRow &node) override;

    std::vector<catalogue::Node> nodes;
};

// Appends a record count and the nodes that it gets. The answer is complete after finish(), which
// returns 0 or EMSGSIZE.
class NodePacker : public catalogue::NodeSink {
  public:
    // Borrows both. Long listings are taken from the cache `kept`, and stored there.
    NodePacker(Bytes &answer, PackedLists &kept);
    bool has(const std::string &list, size_t first, size_t last) override;
    void expect(size_t count) override;
    bool take(const catalogue::NodeRow &node) override;
    int finish();

  private:
    void make_room(size_t size);

    Bytes &answer_;
    PackedLists &kept_;
    std::string list_;           // its name, if these nodes are to be cached
    size_t first_ = 0;           // the number of the first node in the list
    std::vector<uint32_t> ends_; // the end of each node, after the record count
    const size_t begin_;
    size_t end_; // the end of the packed bytes; the answer has spare room after it
    int32_t count_ = 0;
    bool too_long_ = false;
    std::string id_; // both with a NUL, for the packers
    std::string name_;
};

} // namespace vantro::service::requests

#endif
