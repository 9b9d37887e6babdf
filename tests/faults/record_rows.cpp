// Records, tables and freeing: calls that need no service. They fail only if memory is short.
#include <cstdlib>
#include <cstring>

#include <vantro/extras.h>
#include <vantro/records.h>

#include "tests/faults/rows.h"

namespace vantro::faults {

namespace {

char text[] = "text";

// A record is packed, unpacked and freed.
template <typename Record, typename Service, typename Text, typename Size, typename Release>
Row record(const char *names, Text Service::*packed_name, char *Record::*name, Size size_of,
           void (*pack)(const Service *, int, void *, int *),
           int (*unpack)(const void *, int, int, Record **), Release release) {
    return {names, [=](Scene &scene) {
                Service from{};
                from.*packed_name = text;
                char packed[256];
                int size = 0;
                Record *got = nullptr;
                return std::string(scene.faulted([&] {
                    pack(&from, 1, packed, &size);
                    if (size_of(&from) != size || unpack(packed, size, 1, &got) != 0) {
                        return got ? "failed, and wrote" : "failed";
                    }
                    const bool right = std::strcmp(got->*name, text) == 0;
                    errno = 77;
                    release(got, 1);
                    return right && errno == 77 ? "the same" : "another record, or another errno";
                }));
            }};
}

std::string frees_track(Scene &scene) {
    auto *info = static_cast<VantroTrackInfo *>(std::calloc(1, sizeof(VantroTrackInfo)));
    info->metadata = static_cast<Metadata *>(std::calloc(1, sizeof(Metadata)));
    info->metadata->title = strdup(text);
    scene.faulted([&] { return vantro_free_track_info(info), true; });
    return "freed";
}

// Nine elements, one more than the first slots hold; afterwards the lowest free slot is used first.
std::string elements(Scene &scene) {
    SlotArray array{};
    int added = 0, left = 0;
    bool whole = false;
    scene.faulted([&] {
        while (added < 9 && _array_add(&array, 16) == added) {
            ++added;
        }
        if (added == 9 && _array_del(&array, 5) == 0 && _array_del(&array, 3) == 0) {
            const int third = _array_get(&array, 3) ? -1 : _array_add(&array, 16);
            const int fifth = _array_del(&array, 16) == 0 ? -1 : _array_add(&array, 16);
            whole = third == 3 && fifth == 5;
            added += (third >= 0) + (fifth >= 0) - 2;
        }
        for (int i = 0; i < array.slot_count; ++i) {
            left += _array_get(&array, i) && _array_del(&array, i) == 0;
        }
        return true;
    });
    std::free(array.slots);
    return left != added ? "one is lost" : whole ? "all" : "failed";
}

} // namespace

Rows record_rows() {
    const auto of_node = [](const ServiceMediaNode *node) {
        return compute_media_node_size(node, 1);
    };
    const auto of_metadata = [](const Metadata *metadata) {
        return compute_metadata_size(metadata, 1);
    };
    const auto of_source = [](const ServiceMediaSource *) {
        return VANTRO_PACKED_MEDIA_SOURCE_MIN + 4;
    };
    return {record("pack_media_source unpack_media_source vantro_free_media_sources",
                   &ServiceMediaSource::name, &MediaSource::name, of_source, pack_media_source,
                   unpack_media_source, vantro_free_media_sources),
            record("pack_media_node unpack_media_node vantro_free_media_nodes "
                   "compute_media_node_size",
                   &ServiceMediaNode::name, &MediaNode::name, of_node, pack_media_node,
                   unpack_media_node, vantro_free_media_nodes),
            record("pack_metadata unpack_metadata vantro_free_metadata compute_metadata_size",
                   &Metadata::title, &Metadata::title, of_metadata, pack_metadata, unpack_metadata,
                   vantro_free_metadata),
            record("vantro_free_all_media_sources", &ServiceMediaSource::name, &MediaSource::name,
                   of_source, pack_media_source, unpack_media_source,
                   [](MediaSource *block, int) { vantro_free_all_media_sources(block); }),
            record("vantro_free_all_media_nodes", &ServiceMediaNode::name, &MediaNode::name,
                   of_node, pack_media_node, unpack_media_node,
                   [](MediaNode *block, int) { vantro_free_all_media_nodes(block); }),
            record("vantro_free_all_metadata", &Metadata::title, &Metadata::title, of_metadata,
                   pack_metadata, unpack_metadata,
                   [](Metadata *block, int) { vantro_free_all_metadata(block); }),
            {"vantro_free_track_info", frees_track},
            {"_array_add _array_get _array_del", elements}};
}

} // namespace vantro::faults
