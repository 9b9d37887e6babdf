// Records, tables and freeing: calls that need no service. Memory is all that can fail them.
#include <cstdlib>
#include <cstring>

#include <vantro/extras.h>
#include <vantro/records.h>

#include "tests/faults/rows.h"

namespace vantro::faults {

namespace {

char text[] = "text";

// A record as it is packed, the same unpacked, and freed; each may be the call that the row is
// about.
enum class Step { pack, unpack, release };

template <typename Record, typename Service, typename Text, typename Pack, typename Unpack>
bool record(Scene &scene, Step step, Text Service::*packed_name, Pack pack, char *Record::*name,
            Unpack unpack, void (*release)(Record *, int)) {
    Service from{};
    from.*packed_name = text;
    char packed[256];
    int size = 0;
    auto *got = reinterpret_cast<Record *>(packed); // not NULL
    int result = 0;
    const auto packs = [&] { return pack(&from, 1, packed, &size), 0; };
    const auto unpacks = [&] { return result = unpack(packed, size, 1, &got); };
    const auto releases = [&] {
        errno = 77;
        release(got, 1);
        return errno == 77;
    };
    step == Step::pack ? scene.faulted(packs) : packs();
    step == Step::unpack ? scene.faulted(unpacks) : unpacks();
    scene.expect(result == 0 ? std::strcmp(got->*name, text) == 0 : result == -1 && !got,
                 "another record, or one though it failed");
    scene.expect(step == Step::release ? scene.faulted(releases) : releases(), "changes errno");
    return result == 0;
}

bool source(Scene &scene, Step step) {
    return record(scene, step, &ServiceMediaSource::name, pack_media_source, &MediaSource::name,
                  unpack_media_source, vantro_free_media_sources);
}

bool node(Scene &scene, Step step) {
    return record(scene, step, &ServiceMediaNode::name, pack_media_node, &MediaNode::name,
                  unpack_media_node, vantro_free_media_nodes);
}

bool metadata(Scene &scene, Step step) {
    return record(scene, step, &Metadata::title, pack_metadata, &Metadata::title, unpack_metadata,
                  vantro_free_metadata);
}

bool frees_track(Scene &scene) {
    auto *info = static_cast<VantroTrackInfo *>(std::calloc(1, sizeof(VantroTrackInfo)));
    info->metadata = static_cast<Metadata *>(std::calloc(1, sizeof(Metadata)));
    info->metadata->title = strdup(text);
    return scene.faulted([&] { return vantro_free_track_info(info), true; });
}

// Nine elements, which is one more than the first slots; all that were added are there.
bool elements(Scene &scene, bool adding) {
    SlotArray array{};
    int count = 0;
    const auto add = [&] {
        while (count < 9 && _array_add(&array, 16) == count) {
            ++count;
        }
        return count;
    };
    adding ? scene.faulted(add) : add();
    const auto take = [&] {
        int taken = 0;
        while (taken < count && _array_get(&array, taken) && _array_del(&array, taken) == 0) {
            ++taken;
        }
        return taken;
    };
    scene.expect((adding ? take() : scene.faulted(take)) == count, "an element is lost");
    std::free(array.slots);
    return count == 9;
}

template <typename Record, typename Size>
Row sized(const char *name, Size size) {
    return {name, [size](Scene &scene) {
                const Record empty{};
                return scene.faulted([&] { return size(&empty, 1); }) > 4;
            }};
}

} // namespace

Rows record_rows() {
    return {{"pack_media_source", [](Scene &s) { return source(s, Step::pack); }},
            {"unpack_media_source", [](Scene &s) { return source(s, Step::unpack); }},
            {"vantro_free_media_sources", [](Scene &s) { return source(s, Step::release); }},
            {"pack_media_node", [](Scene &s) { return node(s, Step::pack); }},
            {"unpack_media_node", [](Scene &s) { return node(s, Step::unpack); }},
            {"vantro_free_media_nodes", [](Scene &s) { return node(s, Step::release); }},
            {"pack_metadata", [](Scene &s) { return metadata(s, Step::pack); }},
            {"unpack_metadata", [](Scene &s) { return metadata(s, Step::unpack); }},
            {"vantro_free_metadata", [](Scene &s) { return metadata(s, Step::release); }},
            {"vantro_free_track_info", frees_track},
            sized<ServiceMediaNode>("compute_media_node_size", compute_media_node_size),
            sized<Metadata>("compute_metadata_size", compute_metadata_size),
            {"_array_add", [](Scene &s) { return elements(s, true); }},
            {"_array_get", [](Scene &s) { return elements(s, false); }},
            {"_array_del", [](Scene &s) { return elements(s, false); }}};
}

} // namespace vantro::faults
