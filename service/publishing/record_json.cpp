#include "service/publishing/record_json.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <new>
#include <utility>
#include <vector>

#include <rapidjson/writer.h>

#include "service/catalogue/text/utf8.h"

namespace vantro::service::publishing {

namespace {

using Text = std::pair<const char *, const std::string &>;
using Number = std::pair<const char *, int64_t>;

struct Members {
    std::vector<Text> names; // ids and URIs
    std::vector<Text> texts;
    std::vector<Number> numbers;
};

// The library's own stream and allocator do not check for a failed allocation. These throw
// std::bad_alloc.
struct TextStream {
    using Ch = char;
    void Put(char c) { text.push_back(c); }
    void Flush() {}
    std::string text;
};

struct Allocator {
    // Not every release of the writer reads it.
    [[maybe_unused]] static constexpr bool kNeedFree = true;
    void *Malloc(size_t size) { return size == 0 ? nullptr : ::operator new(size); }
    void *Realloc(void *old, size_t old_size, size_t size) {
        void *const memory = Malloc(size);
        if (memory && old) {
            std::memcpy(memory, old, std::min(old_size, size));
        }
        Free(old);
        return memory;
    }
    static void Free(void *memory) { ::operator delete(memory); }
};

using Writer = rapidjson::Writer<TextStream, rapidjson::UTF8<>, rapidjson::UTF8<>, Allocator>;

void write(Writer &writer, const char *name, const std::string &text) {
    if (text.empty()) {
        return;
    }
    writer.Key(name);
    writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
}

// The JSON text with at most `limit` bytes of each member.
std::string written(const Members &members, size_t limit) {
    TextStream stream;
    Writer writer(stream);
    writer.StartObject();
    for (const auto &[name, text] : members.names) {
        if (text.size() <= json_name_max) {
            write(writer, name, text);
        }
    }
    for (const auto &[name, text] : members.texts) {
        write(writer, name, catalogue::clean_text(text, limit));
    }
    for (const auto &[name, number] : members.numbers) {
        writer.Key(name);
        writer.Int64(number);
    }
    writer.EndObject();
    return std::move(stream.text);
}

std::string within_limit(const Members &members) {
    // An escaped byte takes up to six bytes, so the fitting length is found by trying.
    size_t fits = 0;
    size_t too_long = json_max;
    std::string whole = written(members, too_long);
    if (whole.size() < json_max) {
        return whole;
    }
    while (too_long - fits > 1) {
        const size_t limit = (fits + too_long) / 2;
        (written(members, limit).size() < json_max ? fits : too_long) = limit;
    }
    return written(members, fits);
}

} // namespace

std::string json_of(const catalogue::Source &source) {
    return within_limit({{{"uid", source.uid}},
                         {{"name", source.name}, {"view_name", source.view_name}},
                         {{"id", source.id},
                          {"type", source.type},
                          {"status", source.status},
                          {"capabilities", static_cast<int64_t>(source.capabilities)}}});
}

std::string json_of(const catalogue::Node &node) {
    return within_limit({{{"id", node.id}},
                         {{"name", node.name}},
                         {{"type", node.type},
                          {"count", node.count},
                          {"ms_id", node.source},
                          {"ms_type", node.source_type}}});
}

std::string json_of(const catalogue::SongMetadata &metadata) {
    return within_limit({{{"artwork", metadata.artwork}},
                         {{"title", metadata.title},
                          {"artist", metadata.artist},
                          {"album", metadata.album},
                          {"genre", metadata.genre},
                          {"year", metadata.year}},
                         {{"duration", metadata.duration_ms},
                          {"width", metadata.width},
                          {"height", metadata.height},
                          {"disc", metadata.disc},
                          {"track", metadata.track}}});
}

} // namespace vantro::service::publishing
