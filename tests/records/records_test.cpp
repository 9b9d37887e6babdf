// The packed form to the byte, and the unpackers against bytes that end too early. The fuzzer and
// its corpus have all other malformed bytes.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vantro/extras.h>

#include "records/fields.h"
#include "records/unpack.h"

namespace {

using vantro::records::Fields;
using vantro::records::Unpacked;
using Bytes = std::vector<uint8_t>;

Bytes unhex(const std::string &text) {
    Bytes bytes;
    for (size_t i = 0; i < text.size(); i += 2 + (text[i + 2] == ' ')) {
        bytes.push_back(static_cast<uint8_t>(std::stoi(text.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

// Two records of each kind; the second is at an odd address or empty.
const ServiceMediaSource sources[] = {
    {-2, "u", 0xdead, "Disk", "My disk", 5, 0x8877665544332211, 9, nullptr},
    {7, nullptr, 0, "", "x", 1, 2, 3, nullptr}};
const ServiceMediaNode nodes[] = {{"7", "Rock", 0xdead, 1, 12, 3, 2, 0xbeef},
                                  {nullptr, "", 0, -1, INT32_MAX, INT32_MIN, 0, 0}};
char title[] = "Ti", year[] = "1999", reserved[] = "r", empty[] = "";
const Metadata tracks[] = {
    {title, 180500, nullptr, empty, nullptr, nullptr, year, 640, 480, 1, -2, reserved}, {}};

const Bytes packed_sources =
    unhex("feffffff 05000000 09000000 1122334455667788"
          " 01000000 75 04000000 4469736b 07000000 4d79206469736b"
          " 07000000 01000000 03000000 0200000000000000 ffffffff 00000000 01000000 78");
const Bytes packed_nodes = unhex("01000000 0c000000 03000000 02000000 01000000 37 04000000 526f636b"
                                 " ffffffff ffffff7f 00000080 00000000 ffffffff 00000000");
const Bytes packed_tracks =
    unhex("14c10200 80020000 e0010000 01000000 feffffff"
          " 02000000 5469 ffffffff 00000000 ffffffff ffffffff 04000000 31393939 01000000 72"
          " 00000000 00000000 00000000 00000000 00000000"
          " ffffffff ffffffff ffffffff ffffffff ffffffff ffffffff ffffffff");

template <class Record, class Service>
void expect_same(const Record &got, const Service &sent) {
    const auto text = [](const char *string) { return string ? string : ""; };
    for (size_t i = 0; i < Fields<Record>::integers.size(); i++) {
        EXPECT_EQ(got.*Fields<Record>::integers[i], sent.*Fields<Service>::integers[i]) << i;
    }
    for (size_t i = 0; i < Fields<Record>::wide_integers.size(); i++) {
        EXPECT_EQ(got.*Fields<Record>::wide_integers[i], sent.*Fields<Service>::wide_integers[i]);
    }
    for (size_t i = 0; i < Fields<Record>::strings.size(); i++) {
        const char *string = got.*Fields<Record>::strings[i];
        EXPECT_STREQ(text(string), text(sent.*Fields<Service>::strings[i])) << i;
        EXPECT_TRUE(!string || *string); // An empty string comes back as an absent one.
    }
}

template <class Service, class Record>
void try_records(const Service (&sent)[2], const Bytes &golden, int smallest,
                 void (*pack)(const Service *, int, void *, int *),
                 int (*unpack)(const void *, int, int, Record **), void (*release)(Record *, int),
                 void (*release_all)(Record *)) {
    const int whole = static_cast<int>(golden.size());
    Bytes bytes(golden.size() + 1, 0xaa);
    int size = -1;
    pack(sent, 2, bytes.data(), &size);
    ASSERT_EQ(size, whole);
    EXPECT_EQ(bytes.back(), 0xaa);
    bytes.pop_back();
    EXPECT_EQ(bytes, golden);

    Record untouched{}, *records = &untouched;
    ASSERT_EQ(unpack(golden.data(), whole, 2, &records), 0);
    expect_same(records[0], sent[0]);
    expect_same(records[1], sent[1]);
    release(records, 2);
    // Also if a record has no strings at all.
    const Bytes without(static_cast<size_t>(2 * smallest), 0);
    for (const Bytes &from : {golden, without}) {
        ASSERT_EQ(unpack(from.data(), static_cast<int>(from.size()), 2, &records), 0);
        EXPECT_EQ(vantro::records::count_records(records), 2);
        release_all(records);
    }
    release_all(nullptr);

    for (size = 0; size < whole; size++) {
        SCOPED_TRACE(size);
        const auto left = static_cast<size_t>(size);
        records = &untouched;
        // Too short for two records of any content is refused before anything is stored.
        const bool refused = size < 2 * smallest;
        EXPECT_EQ(vantro::records::unpack_records(golden.data(), left, 2, records),
                  refused ? Unpacked::refused : Unpacked::malformed);
        EXPECT_EQ(records, &untouched);
        EXPECT_EQ(unpack(golden.data(), size, 2, &records), -1);
        EXPECT_EQ(records, refused ? &untouched : nullptr);
    }
    records = &untouched;
    for (const int count : {0, -1, INT_MIN, INT_MAX, whole / smallest + 1}) {
        EXPECT_EQ(unpack(golden.data(), whole, count, &records), -1);
    }
    EXPECT_EQ(unpack(nullptr, 100, 1, &records), -1);
    EXPECT_EQ(unpack(golden.data(), -1, 1, &records), -1);
    EXPECT_EQ(unpack(golden.data(), 100, 1, nullptr), -1);
    EXPECT_EQ(records, &untouched);

    pack(sent, INT_MIN, nullptr, &size);
    EXPECT_EQ(size, 0);
    size = -1;
    pack(nullptr, 2, nullptr, &size);
    EXPECT_EQ(size, 0);
}

TEST(Records, MediaSources) {
    try_records(sources, packed_sources, 32, pack_media_source, unpack_media_source,
                vantro_free_media_sources, vantro_free_all_media_sources);
}

TEST(Records, MediaNodes) {
    try_records(nodes, packed_nodes, 24, pack_media_node, unpack_media_node,
                vantro_free_media_nodes, vantro_free_all_media_nodes);
}

TEST(Records, Metadata) {
    try_records(tracks, packed_tracks, 48, pack_metadata, unpack_metadata, vantro_free_metadata,
                vantro_free_all_metadata);
}

TEST(Records, SizesAgreeWithThePackersAndNeverOverflow) {
    EXPECT_EQ(compute_media_node_size(nodes, 2), static_cast<int>(packed_nodes.size()));
    EXPECT_EQ(compute_metadata_size(tracks, 2), static_cast<int>(packed_tracks.size()));
    EXPECT_EQ(compute_media_node_size(nodes, INT_MIN), 0);

    std::string megabyte(1 << 20, 'x');
    char *text = megabyte.data();
    const Metadata large{text, 0, text, text, text, text, text, 0, 0, 0, 0, text};
    const std::vector<Metadata> many(300, large);
    EXPECT_EQ(compute_metadata_size(many.data(), 300), INT_MAX);
}

} // namespace
