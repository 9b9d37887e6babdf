#include "service/requests/packing.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

#include <vantro/records.h>

namespace vantro::service::requests {

namespace {

// The number of records that are made and packed at a time, on the stack.
constexpr size_t records_at_once = 64;

// Room that is reserved in advance for each node of a long list: a few words, an id, a title.
constexpr size_t usual_node_bytes = 64;

// The packers only read the strings; the record types are shared with clients, whose strings are
// writable.
char *text_or_absent(const std::string &text) {
    return text.empty() ? nullptr : const_cast<char *>(text.c_str());
}

ServiceMediaSource packed_form(const catalogue::Source &source) {
    ServiceMediaSource record = {};
    record.id = source.id;
    record.uid = text_or_absent(source.uid);
    record.name = text_or_absent(source.name);
    record.view_name = text_or_absent(source.view_name);
    record.type = source.type;
    record.status = source.status;
    record.capabilities = source.capabilities;
    return record;
}

size_t packed_size(const catalogue::Source &source) {
    return VANTRO_PACKED_MEDIA_SOURCE_MIN + source.uid.size() + source.name.size() +
           source.view_name.size();
}

ServiceMediaNode packed_form(const catalogue::Node &node) {
    ServiceMediaNode record = {};
    record.id = text_or_absent(node.id);
    record.name = text_or_absent(node.name);
    record.type = node.type;
    record.count = node.count;
    record.ms_id = node.source;
    record.ms_type = node.source_type;
    return record;
}

size_t packed_size(const catalogue::Node &node) {
    return VANTRO_PACKED_MEDIA_NODE_MIN + node.id.size() + node.name.size();
}

Metadata packed_form(const catalogue::SongMetadata &metadata) {
    Metadata record = {};
    record.title = text_or_absent(metadata.title);
    record.duration = metadata.duration_ms;
    record.artwork = text_or_absent(metadata.artwork);
    record.artist = text_or_absent(metadata.artist);
    record.album = text_or_absent(metadata.album);
    record.genre = text_or_absent(metadata.genre);
    record.year = text_or_absent(metadata.year);
    record.width = metadata.width;
    record.height = metadata.height;
    record.disc = metadata.disc;
    record.track = metadata.track;
    return record;
}

size_t packed_size(const catalogue::SongMetadata &metadata) {
    size_t size = VANTRO_PACKED_METADATA_MIN;
    for (const std::string *text : {&metadata.title, &metadata.artwork, &metadata.artist,
                                    &metadata.album, &metadata.genre, &metadata.year}) {
        size += text->size();
    }
    return size;
}

// Computes the size first, so that memory is reserved once.
template <typename Record, typename Packed>
int append_records(Bytes &answer, const Record *records, size_t count,
                   void (*pack)(const Packed *, int, void *, int *)) {
    size_t at = answer.size();
    size_t end = at;
    for (size_t i = 0; i < count; ++i) {
        end += packed_size(records[i]);
    }
    if (end > answer_max) {
        return EMSGSIZE;
    }
    answer.resize(end);
    while (count > 0) {
        Packed packed[records_at_once];
        const size_t some = std::min(count, records_at_once);
        std::transform(records, records + some, packed,
                       [](const Record &record) { return packed_form(record); });
        int size = 0;
        pack(packed, static_cast<int>(some), answer.data() + at, &size);
        at += static_cast<size_t>(size);
        records += some;
        count -= some;
    }
    answer.resize(at);
    return 0;
}

} // namespace

int append_sources(Bytes &answer, const std::vector<catalogue::Source> &sources) {
    append(answer, static_cast<int32_t>(sources.size()));
    return append_records(answer, sources.data(), sources.size(), pack_media_source);
}

int append_nodes(Bytes &answer, const catalogue::Node *nodes, size_t count) {
    return append_records(answer, nodes, count, pack_media_node);
}

int append_metadata(Bytes &answer, const catalogue::SongMetadata *metadata, size_t count) {
    return append_records(answer, metadata, count, pack_metadata);
}

int append_texts(Bytes &answer, const std::vector<std::string> &texts) {
    size_t end = answer.size();
    for (const std::string &text : texts) {
        end += sizeof(int32_t) + text.size();
    }
    if (end > answer_max) {
        return EMSGSIZE;
    }
    answer.reserve(end);
    for (const std::string &text : texts) {
        append(answer, static_cast<int32_t>(text.size()));
        answer.insert(answer.end(), text.begin(), text.end());
    }
    return 0;
}

bool NodeCollector::take(const catalogue::NodeRow &node) {
    nodes.push_back({std::string(node.id), std::string(node.name), node.type, node.count,
                     node.source, node.source_type, node.song});
    return true;
}

NodePacker::NodePacker(Bytes &answer, PackedLists &kept)
    : answer_(answer), kept_(kept), begin_(answer.size()), end_(begin_) {
    make_room(sizeof count_);
    end_ += sizeof count_;
}

bool NodePacker::has(const std::string &list, size_t first, size_t last) {
    const size_t count = last - first;
    if (count < PackedLists::nodes_min) {
        return false;
    }
    if (const std::shared_ptr<const PackedNodes> kept = kept_.find(list, first, last)) {
        const std::span<const unsigned char> part = kept->part(first, last);
        answer_.resize(end_);
        answer_.insert(answer_.end(), part.begin(), part.end());
        end_ = answer_.size();
        count_ = static_cast<int32_t>(count);
        return true;
    }
    list_ = list;
    first_ = first;
    ends_.reserve(count);
    return false;
}

void NodePacker::make_room(size_t size) {
    if (answer_.size() - end_ < size) {
        answer_.resize(std::max(end_ + size, std::min(2 * answer_.size(), answer_max)));
    }
}

void NodePacker::expect(size_t count) {
    make_room(std::min(count * usual_node_bytes, answer_max - end_));
}

bool NodePacker::take(const catalogue::NodeRow &node) {
    const size_t size = VANTRO_PACKED_MEDIA_NODE_MIN + node.id.size() + node.name.size();
    too_long_ = too_long_ || size > answer_max - end_;
    if (too_long_) {
        return false;
    }
    make_room(size);
    id_ = node.id;
    name_ = node.name;
    const ServiceMediaNode record = {
        text_or_absent(id_), text_or_absent(name_), 0, node.type, node.count,
        node.source,         node.source_type,      0};
    int written = 0;
    pack_media_node(&record, 1, answer_.data() + end_, &written);
    end_ += static_cast<size_t>(written);
    ++count_;
    if (!list_.empty()) {
        ends_.push_back(static_cast<uint32_t>(end_ - begin_ - sizeof count_));
    }
    return true;
}

int NodePacker::finish() {
    answer_.resize(end_);
    std::memcpy(answer_.data() + begin_, &count_, sizeof count_);
    if (too_long_) {
        return EMSGSIZE;
    }
    if (!list_.empty()) {
        kept_.keep(list_, first_, std::span(answer_).subspan(begin_ + sizeof count_), ends_);
    }
    return 0;
}

} // namespace vantro::service::requests
