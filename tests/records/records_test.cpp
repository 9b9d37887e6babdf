// The packed form to the byte, and the unpackers against bytes that lie.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vantro/extras.h>

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes unhex(const std::string &text) {
    std::istringstream words(text);
    Bytes bytes;
    for (std::string word; words >> word;)
        for (std::size_t i = 0; i < word.size(); i += 2)
            bytes.push_back(static_cast<std::uint8_t>(std::stoi(word.substr(i, 2), nullptr, 16)));
    return bytes;
}

// Two records a kind, the second of which lies at an odd address.
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
    static constexpr const char *golden =
        "feffffff 05000000 09000000 1122334455667788"
        "01000000 75 04000000 4469736b 07000000 4d79206469736b"
        "07000000 01000000 03000000 0200000000000000 ffffffff 00000000 01000000 78";
    static void check(const MediaSource *got) {
        EXPECT_EQ(got[0].capabilities, 0x8877665544332211U);
        EXPECT_STREQ(got[0].view_name, "My disk");
        EXPECT_EQ(got[1].status, 3);
        EXPECT_EQ(got[1].uid, nullptr);
        EXPECT_EQ(got[1].name, nullptr);
    }
};

struct Nodes {
    using Record = MediaNode;
    static constexpr auto unpack = unpack_media_node;
    static constexpr auto release = vantro_free_media_nodes;
    static constexpr int smallest = VANTRO_PACKED_MEDIA_NODE_MIN;
    static void pack(void *buffer, int *size) { pack_media_node(nodes, 2, buffer, size); }
    static constexpr const char *golden =
        "01000000 0c000000 03000000 02000000 01000000 37 04000000 526f636b"
        "ffffffff ffffff7f 00000080 00000000 ffffffff 00000000";
    static void check(const MediaNode *got) {
        EXPECT_STREQ(got[0].id, "7");
        EXPECT_STREQ(got[0].name, "Rock");
        EXPECT_EQ(got[1].ms_id, INT32_MIN);
        EXPECT_EQ(got[1].name, nullptr);
    }
};

struct Tracks {
    using Record = Metadata;
    static constexpr auto unpack = unpack_metadata;
    static constexpr auto release = vantro_free_metadata;
    static constexpr int smallest = VANTRO_PACKED_METADATA_MIN;
    static void pack(void *buffer, int *size) { pack_metadata(tracks, 2, buffer, size); }
    static constexpr const char *golden =
        "14c10200 80020000 e0010000 01000000 feffffff"
        "02000000 5469 ffffffff 00000000 ffffffff ffffffff 04000000 31393939 01000000 72"
        "0000000000000000000000000000000000000000"
        "ffffffff ffffffff ffffffff ffffffff ffffffff ffffffff ffffffff";
    static void check(const Metadata *got) {
        EXPECT_EQ(got[0].track, -2);
        EXPECT_STREQ(got[0].title, "Ti");
        EXPECT_STREQ(got[0].reserved, "r");
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
    const Bytes golden = unhex(TypeParam::golden);
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
    const Bytes golden = unhex(TypeParam::golden);
    for (std::size_t size = 0; size < golden.size(); size++) {
        SCOPED_TRACE(size);
        ASSERT_EQ(this->unpack(golden, size, 2), -1);
        // Too short for two records of any content is refused before anything is stored.
        EXPECT_EQ(this->records, size < 2 * TypeParam::smallest ? &this->untouched : nullptr);
    }
}

TYPED_TEST(Records, AnyWordMayLie) {
    const Bytes golden = unhex(TypeParam::golden);
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
    const Bytes golden = unhex(TypeParam::golden);
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
    EXPECT_EQ(compute_media_node_size(nodes, 2), static_cast<int>(unhex(Nodes::golden).size()));
    EXPECT_EQ(compute_metadata_size(tracks, 2), static_cast<int>(unhex(Tracks::golden).size()));

    std::string megabyte(1 << 20, 'x');
    char *text = megabyte.data();
    const Metadata large{text, 0, text, text, text, text, text, 0, 0, 0, 0, text};
    EXPECT_EQ(compute_metadata_size(&large, 1), 48 + (7 << 20));
    const std::vector<Metadata> many(300, large);
    EXPECT_EQ(compute_metadata_size(many.data(), 300), INT_MAX);
}

} // namespace
