// The packed form to the byte, and the unpackers against bytes that lie.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vantro/extras.h>

#include "records/unpack.h"
#include "tests/records/failing_memory.h"

namespace {

using vantro::Unpacked;
using Bytes = std::vector<std::uint8_t>;

Bytes unhex(const std::string &text) {
    std::istringstream words(text);
    Bytes bytes;
    for (std::string word; words >> word;)
        for (std::size_t i = 0; i < word.size(); i += 2)
            bytes.push_back(static_cast<std::uint8_t>(std::stoi(word.substr(i, 2), nullptr, 16)));
    return bytes;
}

// Two records a kind, the second of which lies at an odd address or holds nothing.
const ServiceMediaSource sources[] = {
    {-2, "u", 0xdead, "Disk", "My disk", 5, 0x8877665544332211, 9, nullptr},
    {7, nullptr, 0, "", "x", 1, 2, 3, nullptr}};
const ServiceMediaNode nodes[] = {{"7", "Rock", 0xdead, 1, 12, 3, 2, 0xbeef},
                                  {nullptr, "", 0, -1, INT32_MAX, INT32_MIN, 0, 0}};
char title[] = "Ti", year[] = "1999", reserved[] = "r", empty[] = "";
const Metadata tracks[] = {
    {title, 180500, nullptr, empty, nullptr, nullptr, year, 640, 480, 1, -2, reserved}, {}};

struct Sources {
    using Record = MediaSource;
    static constexpr auto unpack = unpack_media_source;
    static constexpr auto release = vantro_free_media_sources;
    static constexpr int smallest = VANTRO_PACKED_MEDIA_SOURCE_MIN, allocations = 5;
    static void pack(void *buffer, int *size) { pack_media_source(sources, 2, buffer, size); }
    static constexpr const char *golden =
        "feffffff 05000000 09000000 1122334455667788"
        "01000000 75 04000000 4469736b 07000000 4d79206469736b"
        "07000000 01000000 03000000 0200000000000000 ffffffff 00000000 01000000 78";
    static void check(const MediaSource *got) {
        EXPECT_EQ(got[0].capabilities, 0x8877665544332211U);
        EXPECT_STREQ(got[0].view_name, "My disk");
        EXPECT_EQ(got[1].status, 3);
        EXPECT_EQ(got[1].name, nullptr);
    }
};

struct Nodes {
    using Record = MediaNode;
    static constexpr auto unpack = unpack_media_node;
    static constexpr auto release = vantro_free_media_nodes;
    static constexpr int smallest = VANTRO_PACKED_MEDIA_NODE_MIN, allocations = 3;
    static void pack(void *buffer, int *size) { pack_media_node(nodes, 2, buffer, size); }
    static constexpr const char *golden =
        "01000000 0c000000 03000000 02000000 01000000 37 04000000 526f636b"
        "ffffffff ffffff7f 00000080 00000000 ffffffff 00000000";
    static void check(const MediaNode *got) {
        EXPECT_STREQ(got[0].name, "Rock");
        EXPECT_EQ(got[1].ms_id, INT32_MIN);
    }
};

struct Tracks {
    using Record = Metadata;
    static constexpr auto unpack = unpack_metadata;
    static constexpr auto release = vantro_free_metadata;
    static constexpr int smallest = VANTRO_PACKED_METADATA_MIN, allocations = 4;
    static void pack(void *buffer, int *size) { pack_metadata(tracks, 2, buffer, size); }
    static constexpr const char *golden =
        "14c10200 80020000 e0010000 01000000 feffffff"
        "02000000 5469 ffffffff 00000000 ffffffff ffffffff 04000000 31393939 01000000 72"
        "0000000000000000000000000000000000000000"
        "ffffffff ffffffff ffffffff ffffffff ffffffff ffffffff ffffffff";
    static void check(const Metadata *got) {
        EXPECT_EQ(got[0].track, -2);
        EXPECT_STREQ(got[0].reserved, "r");
        EXPECT_EQ(got[1].reserved, nullptr);
    }
};

template <class Kind>
class Records : public testing::Test {
  protected:
    using Record = typename Kind::Record;
    const Bytes golden = unhex(Kind::golden);
    const int bytes = static_cast<int>(golden.size());
    Record untouched{};
    Record *records = &untouched;
};

using Kinds = testing::Types<Sources, Nodes, Tracks>;
TYPED_TEST_SUITE(Records, Kinds);

TYPED_TEST(Records, PackToTheByteAndComeBack) {
    Bytes packed(this->golden.size() + 1, 0xaa);
    int size = -1;
    TypeParam::pack(packed.data(), &size);
    ASSERT_EQ(size, this->bytes);
    EXPECT_EQ(packed.back(), 0xaa);
    packed.pop_back();
    EXPECT_EQ(packed, this->golden);
    ASSERT_EQ(TypeParam::unpack(packed.data(), size, 2, &this->records), 0);
    TypeParam::check(this->records);
    TypeParam::release(this->records, 2);
}

TYPED_TEST(Records, EndingAtAnyByteIsAFailureThatLeavesNothing) {
    for (int size = 0; size < this->bytes; size++) {
        SCOPED_TRACE(size);
        // A block of exactly that size, where a sanitizer sees each byte read beyond it.
        std::unique_ptr<std::uint8_t[]> exact(new std::uint8_t[static_cast<std::size_t>(size)]);
        std::copy_n(this->golden.begin(), size, exact.get());
        this->records = &this->untouched;
        ASSERT_EQ(TypeParam::unpack(exact.get(), size, 2, &this->records), -1);
        // Too short for two records of any content is refused before anything is stored.
        const bool refused = size < 2 * TypeParam::smallest;
        EXPECT_EQ(this->records, refused ? &this->untouched : nullptr);
        // Inside, a failure never stores anything.
        this->records = &this->untouched;
        EXPECT_EQ(
            vantro::unpack_records(exact.get(), static_cast<std::size_t>(size), 2, this->records),
            refused ? Unpacked::refused : Unpacked::malformed);
        EXPECT_EQ(this->records, &this->untouched);
    }
}

TYPED_TEST(Records, WantOfMemoryIsToldFromMalformedBytesAndLeavesNothing) {
    for (int i = 0; i < TypeParam::allocations; i++) {
        SCOPED_TRACE(i);
        this->records = &this->untouched;
        allocations_left = i;
        EXPECT_EQ(
            vantro::unpack_records(this->golden.data(), this->golden.size(), 2, this->records),
            Unpacked::no_memory);
        EXPECT_EQ(this->records, &this->untouched);
        allocations_left = i;
        EXPECT_EQ(TypeParam::unpack(this->golden.data(), this->bytes, 2, &this->records), -1);
        EXPECT_EQ(this->records, nullptr);
        EXPECT_EQ(allocations_left, -1);
    }
}

TYPED_TEST(Records, ArgumentsThatCannotBeRightLeaveThePointer) {
    for (const int count : {0, -1, INT_MIN, INT_MAX, this->bytes / TypeParam::smallest + 1})
        EXPECT_EQ(TypeParam::unpack(this->golden.data(), this->bytes, count, &this->records), -1);
    EXPECT_EQ(TypeParam::unpack(nullptr, 100, 1, &this->records), -1);
    EXPECT_EQ(TypeParam::unpack(this->golden.data(), -1, 1, &this->records), -1);
    EXPECT_EQ(TypeParam::unpack(this->golden.data(), 100, 1, nullptr), -1);
    EXPECT_EQ(this->records, &this->untouched);
}

TEST(Packing, WritesNothingWithoutRecords) {
    int size = 99;
    pack_media_node(nodes, INT_MIN, nullptr, &size);
    EXPECT_EQ(size, 0);
    EXPECT_EQ(compute_media_node_size(nodes, INT_MIN), 0);
    size = 99;
    pack_metadata(nullptr, 3, nullptr, &size);
    EXPECT_EQ(size, 0);
}

TEST(Sizing, AgreesWithThePackersAndNeverOverflows) {
    EXPECT_EQ(compute_media_node_size(nodes, 2), static_cast<int>(unhex(Nodes::golden).size()));
    EXPECT_EQ(compute_metadata_size(tracks, 2), static_cast<int>(unhex(Tracks::golden).size()));

    std::string megabyte(1 << 20, 'x');
    char *text = megabyte.data();
    const Metadata large{text, 0, text, text, text, text, text, 0, 0, 0, 0, text};
    const std::vector<Metadata> many(300, large);
    EXPECT_EQ(compute_metadata_size(many.data(), 300), INT_MAX);
}

} // namespace
