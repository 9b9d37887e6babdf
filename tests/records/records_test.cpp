// The packed form to the byte, and the unpackers against bytes that lie.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vantro/extras.h>

namespace {

using Bytes = std::vector<std::uint8_t>;

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
    static constexpr int smallest = VANTRO_PACKED_MEDIA_SOURCE_MIN;
    static void pack(void *buffer, int *size) { pack_media_source(sources, 2, buffer, size); }
    static Bytes golden() {
        return {0xfe, 0xff, 0xff, 0xff, 5,    0,    0,    0, 9, 0, 0, 0,   0x11,
                0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 1, 0, 0, 0, 'u', 4,
                0,    0,    0,    'D',  'i',  's',  'k',  7, 0, 0, 0, 'M', 'y',
                ' ',  'd',  'i',  's',  'k',  7,    0,    0, 0, 1, 0, 0,   0,
                3,    0,    0,    0,    2,    0,    0,    0, 0, 0, 0, 0,   0xff,
                0xff, 0xff, 0xff, 0,    0,    0,    0,    1, 0, 0, 0, 'x'};
    }
    static void check(const MediaSource *got) {
        EXPECT_EQ(got[0].id, -2);
        EXPECT_STREQ(got[0].uid, "u");
        EXPECT_STREQ(got[0].name, "Disk");
        EXPECT_STREQ(got[0].view_name, "My disk");
        EXPECT_EQ(got[0].type, 5);
        EXPECT_EQ(got[0].status, 9);
        EXPECT_EQ(got[0].capabilities, 0x8877665544332211U);
        EXPECT_EQ(got[1].id, 7);
        EXPECT_EQ(got[1].uid, nullptr);
        EXPECT_EQ(got[1].name, nullptr);
        EXPECT_STREQ(got[1].view_name, "x");
        EXPECT_EQ(got[1].capabilities, 2U);
    }
};

struct Nodes {
    using Record = MediaNode;
    static constexpr auto unpack = unpack_media_node;
    static constexpr auto release = vantro_free_media_nodes;
    static constexpr int smallest = VANTRO_PACKED_MEDIA_NODE_MIN;
    static void pack(void *buffer, int *size) { pack_media_node(nodes, 2, buffer, size); }
    static Bytes golden() {
        return {1,    0,    0,    0,    12,   0,    0,    0,    3,    0, 0, 0,    2,    0,
                0,    0,    1,    0,    0,    0,    0x37, 4,    0,    0, 0, 0x52, 0x6f, 0x63,
                0x6b, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0x7f, 0, 0, 0,    0x80, 0,
                0,    0,    0,    0xff, 0xff, 0xff, 0xff, 0,    0,    0, 0};
    }
    static void check(const MediaNode *got) {
        EXPECT_STREQ(got[0].id, "7");
        EXPECT_STREQ(got[0].name, "Rock");
        EXPECT_EQ(got[0].type, 1);
        EXPECT_EQ(got[0].count, 12);
        EXPECT_EQ(got[0].ms_id, 3);
        EXPECT_EQ(got[0].ms_type, 2);
        EXPECT_EQ(got[1].id, nullptr);
        EXPECT_EQ(got[1].name, nullptr);
        EXPECT_EQ(got[1].count, INT32_MAX);
        EXPECT_EQ(got[1].ms_id, INT32_MIN);
    }
};

struct Tracks {
    using Record = Metadata;
    static constexpr auto unpack = unpack_metadata;
    static constexpr auto release = vantro_free_metadata;
    static constexpr int smallest = VANTRO_PACKED_METADATA_MIN;
    static void pack(void *buffer, int *size) { pack_metadata(tracks, 2, buffer, size); }
    static Bytes golden() {
        Bytes bytes{0x14, 0xc1, 2,    0,    0x80, 2,    0,    0,    0xe0, 1, 0,
                    0,    1,    0,    0,    0,    0xfe, 0xff, 0xff, 0xff, 2, 0,
                    0,    0,    'T',  'i',  0xff, 0xff, 0xff, 0xff, 0,    0, 0,
                    0,    0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 4, 0,
                    0,    0,    '1',  '9',  '9',  '9',  1,    0,    0,    0, 'r'};
        bytes.insert(bytes.end(), 20, 0);
        bytes.insert(bytes.end(), 28, 0xff);
        return bytes;
    }
    static void check(const Metadata *got) {
        EXPECT_STREQ(got[0].title, "Ti");
        EXPECT_EQ(got[0].duration, 180500);
        EXPECT_EQ(got[0].artwork, nullptr);
        EXPECT_EQ(got[0].artist, nullptr);
        EXPECT_STREQ(got[0].year, "1999");
        EXPECT_EQ(got[0].width, 640);
        EXPECT_EQ(got[0].height, 480);
        EXPECT_EQ(got[0].disc, 1);
        EXPECT_EQ(got[0].track, -2);
        EXPECT_STREQ(got[0].reserved, "r");
        EXPECT_EQ(got[1].title, nullptr);
        EXPECT_EQ(got[1].reserved, nullptr);
    }
};

template <class Kind>
class Records : public testing::Test {
  protected:
    using Record = typename Kind::Record;

    // Unpacks from a block of exactly that size, where a sanitizer sees each byte read beyond it.
    int unpack(const Bytes &bytes, std::size_t size, int count) {
        std::unique_ptr<std::uint8_t[]> exact(new std::uint8_t[size]);
        std::copy_n(bytes.begin(), size, exact.get());
        records = &untouched;
        return Kind::unpack(exact.get(), static_cast<int>(size), count, &records);
    }

    Record untouched{};
    Record *records = &untouched;
};

using Kinds = testing::Types<Sources, Nodes, Tracks>;
TYPED_TEST_SUITE(Records, Kinds);

TYPED_TEST(Records, PackToTheByteAndComeBack) {
    const Bytes golden = TypeParam::golden();
    Bytes packed(golden.size() + 1, 0xaa);
    int size = -1;
    TypeParam::pack(packed.data(), &size);
    ASSERT_EQ(size, static_cast<int>(golden.size()));
    EXPECT_EQ(packed.back(), 0xaa);
    packed.pop_back();
    EXPECT_EQ(packed, golden);
    ASSERT_EQ(this->unpack(golden, golden.size(), 2), 0);
    TypeParam::check(this->records);
    TypeParam::release(this->records, 2);
}

TYPED_TEST(Records, EndingAtAnyByteIsAFailureThatLeavesNothing) {
    const Bytes golden = TypeParam::golden();
    for (std::size_t size = 0; size < golden.size(); size++) {
        SCOPED_TRACE(size);
        ASSERT_EQ(this->unpack(golden, size, 2), -1);
        // Too short for two records of any content is refused before anything is stored.
        EXPECT_EQ(this->records, size < 2 * TypeParam::smallest ? &this->untouched : nullptr);
    }
}

TYPED_TEST(Records, AnyWordMayLie) {
    const Bytes golden = TypeParam::golden();
    for (const std::uint32_t lie : {0x7fffffffU, 0x7ffffffcU, 0x80000000U, 0xfffffffeU, 60U}) {
        for (std::size_t at = 0; at + 4 <= golden.size(); at++) {
            Bytes bytes = golden;
            std::memcpy(&bytes[at], &lie, 4);
            if (this->unpack(bytes, bytes.size(), 2) == 0)
                TypeParam::release(this->records, 2);
            else
                ASSERT_EQ(this->records, nullptr);
        }
    }
}

TYPED_TEST(Records, ArgumentsThatCannotBeRightLeaveThePointer) {
    const Bytes golden = TypeParam::golden();
    const int most = static_cast<int>(golden.size()) / TypeParam::smallest;
    for (const int count : {0, -1, INT_MIN, INT_MAX, most + 1}) {
        EXPECT_EQ(this->unpack(golden, golden.size(), count), -1) << count;
        EXPECT_EQ(this->records, &this->untouched) << count;
    }
    EXPECT_EQ(TypeParam::unpack(nullptr, 100, 1, &this->records), -1);
    EXPECT_EQ(TypeParam::unpack(golden.data(), -1, 1, &this->records), -1);
    EXPECT_EQ(TypeParam::unpack(golden.data(), 100, 1, nullptr), -1);
    EXPECT_EQ(this->records, &this->untouched);
}

TEST(Packing, WritesNothingWithoutRecords) {
    for (const int count : {0, -1, INT_MIN}) {
        int size = 99;
        pack_media_node(nodes, count, nullptr, &size);
        EXPECT_EQ(size, 0);
        EXPECT_EQ(compute_media_node_size(nodes, count), 0);
    }
    int size = 99;
    pack_metadata(nullptr, 3, nullptr, &size);
    EXPECT_EQ(size, 0);
}

TEST(Sizing, AgreesWithThePackersAndNeverOverflows) {
    EXPECT_EQ(compute_media_node_size(nodes, 2), static_cast<int>(Nodes::golden().size()));
    EXPECT_EQ(compute_metadata_size(tracks, 2), static_cast<int>(Tracks::golden().size()));

    std::string megabyte(1 << 20, 'x');
    char *text = megabyte.data();
    const Metadata large{text, 0, text, text, text, text, text, 0, 0, 0, 0, text};
    EXPECT_EQ(compute_metadata_size(&large, 1), 48 + (7 << 20));
    const std::vector<Metadata> many(300, large);
    EXPECT_EQ(compute_metadata_size(many.data(), 300), INT_MAX);
}

} // namespace
