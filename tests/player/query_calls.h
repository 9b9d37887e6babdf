// The queries of the player API, each as a function that gives its result in one line; and the
// bytes of answers to them.
#ifndef VANTRO_TESTS_PLAYER_QUERY_CALLS_H
#define VANTRO_TESTS_PLAYER_QUERY_CALLS_H

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include <vantro/extras.h>

#include "tests/player/service.h"

inline std::string node_bytes(const std::string &name) {
    return words({1, 12, 3, 2}) + text("7") + text(name);
}

inline std::string metadata_bytes(const std::string &title) {
    return words({9, 0, 0, 0, 0}) + text(title) + std::string(24, '\0');
}

inline std::string source_bytes(const std::string &name) {
    return words({3, 1, 2, 0x7f, -1}) + text("uid") + text(name) + words({-1});
}

// The state of the caller's variables after a call, in one line: "-1" is a failure that did not
// change them, and "null" a pointer that has become null.
template <class Record>
inline std::string listed(int result, int count, Record *records, const Record *before,
                          void (*release)(Record *, int)) {
    if (result == -1 && count != 5) {
        return "a failure wrote the count";
    }
    std::string line = std::to_string(result) + (result == 0 ? " " + std::to_string(count) : "");
    if (!records || records == before) {
        return line + (records ? "" : " null");
    }
    for (int i = 0; i < count; i++) {
        line += std::string(" ") + (records[i].name ? records[i].name : "-");
    }
    release(records, count);
    return line;
}

template <class Query>
inline std::string list_nodes(Query query) {
    MediaNode before{}, *nodes = &before;
    int count = 5;
    const int result = query(&count, &nodes);
    return listed(result, count, nodes, &before, vantro_free_media_nodes);
}

// The same for a listing with metadata: after the names come the titles.
template <class Query>
inline std::string list_described(Query query) {
    MediaNode before{}, *nodes = &before;
    Metadata untouched{}, *metadata = &untouched;
    int count = 5;
    const int result = query(&count, &nodes, &metadata);
    std::string titles;
    for (int i = 0; result == 0 && metadata != &untouched && i < count; i++) {
        titles += std::string(" ") + metadata[i].title;
    }
    EXPECT_EQ(nodes == &before, metadata == &untouched);
    if (metadata != &untouched) {
        vantro_free_metadata(metadata, count);
    }
    return listed(result, count, nodes, &before, vantro_free_media_nodes) + titles;
}

inline std::string described_bytes(const std::string &node, const std::string &metadata) {
    return words({0, 1, static_cast<int32_t>(node.size())}) + node + metadata;
}

struct Call {
    const char *name, *failure;
    std::function<std::string(VantroHandle *)> call;
    std::string sent, answer, outcome;
    bool needs_player;
    enum { fixed, short_area, long_area } kind;
    size_t words; // Bytes of the answer before its records or values.
};

inline std::string get_sources(VantroHandle *handle) {
    MediaSource before{}, *sources = &before;
    int count = 5;
    const int result = vantro_get_media_sources(handle, &sources, &count);
    return listed(result, count, sources, &before, vantro_free_media_sources);
}

inline std::string browse(VantroHandle *handle, const char *node_id) {
    return list_nodes([&](int *count, MediaNode **nodes) {
        return vantro_browse(handle, 3, node_id, -2, count, nodes);
    });
}

inline std::string search(VantroHandle *handle, const char *filter, const char *term) {
    return list_nodes([&](int *count, MediaNode **nodes) {
        return vantro_search(handle, 3, filter, term, 0, count, nodes);
    });
}

inline std::string get_metadata(VantroHandle *handle, const char *node_id) {
    Metadata before{}, *metadata = &before;
    const int result = vantro_get_metadata(handle, 3, node_id, &metadata);
    std::string line = std::to_string(result);
    if (!metadata || metadata == &before) {
        return line + (metadata ? "" : " null");
    }
    line += std::string(" ") + (metadata->title ? metadata->title : "-");
    vantro_free_metadata(metadata, 1);
    return line;
}

inline std::string get_values(VantroHandle *handle, const char *node_id, const char *const *keyv) {
    char before[] = "", *values[4] = {before, before, before, before};
    const int result = vantro_get_extended_metadata(handle, 3, node_id, keyv, values);
    std::string line = std::to_string(result);
    for (char *value : values) {
        if (value == before) {
            continue;
        }
        line += std::string(" ") + (value ? value : "-");
        std::free(value);
    }
    return line;
}

inline std::string get_status(VantroHandle *handle) {
    VantroStatus before{}, *status = &before;
    const int result = vantro_get_status(handle, &status);
    if (status == &before) {
        return std::to_string(result);
    }
    std::string line = std::to_string(result);
    for (const int64_t word :
         {int64_t{status->state.state}, int64_t{status->state.shuffle},
          int64_t{status->trksession.length}, static_cast<int64_t>(status->trksession.tsid),
          int64_t{status->volume.level}, int64_t{status->volume.muted}, int64_t{status->position},
          int64_t{status->index}}) {
        line += ' ' + std::to_string(word);
    }
    line += std::string(" ") + status->media_node->name + ' ' + status->metadata->title;
    vantro_free_status(status);
    return line;
}

// State, session, volume, position, index, and the lengths of node and metadata.
inline std::string status_bytes(const std::string &node, const std::string &metadata) {
    return words({0, 1, 0, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, static_cast<int32_t>(node.size()),
                  static_cast<int32_t>(metadata.size())}) +
           node + metadata;
}

#endif
