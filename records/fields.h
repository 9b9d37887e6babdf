// The fields of each record that are packed, in their order. Packers, sizing functions, unpackers
// and the functions that free records all use these tables, so that they cannot disagree.
#ifndef VANTRO_RECORDS_FIELDS_H
#define VANTRO_RECORDS_FIELDS_H

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <tuple>

#include <vantro/records.h>

namespace vantro::records {

template <class Record>
struct Fields;

template <class Record>
struct SourceFields {
    static constexpr std::array integers{&Record::id, &Record::type, &Record::status};
    static constexpr std::array wide_integers{&Record::capabilities};
    static constexpr std::array strings{&Record::uid, &Record::name, &Record::view_name};
};

template <class Record>
struct NodeFields {
    static constexpr std::array integers{&Record::type, &Record::count, &Record::ms_id,
                                         &Record::ms_type};
    static constexpr std::array<uint64_t Record::*, 0> wide_integers{};
    static constexpr std::array strings{&Record::id, &Record::name};
};

template <>
struct Fields<MediaSource> : SourceFields<MediaSource> {};
template <>
struct Fields<ServiceMediaSource> : SourceFields<ServiceMediaSource> {};
template <>
struct Fields<MediaNode> : NodeFields<MediaNode> {};
template <>
struct Fields<ServiceMediaNode> : NodeFields<ServiceMediaNode> {};

template <>
struct Fields<Metadata> {
    static constexpr std::array integers{&Metadata::duration, &Metadata::width, &Metadata::height,
                                         &Metadata::disc, &Metadata::track};
    static constexpr std::array<uint64_t Metadata::*, 0> wide_integers{};
    static constexpr std::array strings{&Metadata::title,   &Metadata::artwork, &Metadata::artist,
                                        &Metadata::album,   &Metadata::genre,   &Metadata::year,
                                        &Metadata::reserved};
};

// Bytes of a packed record whose strings are all absent.
template <class Record>
inline constexpr size_t packed_min =
    4 * Fields<Record>::integers.size() + 8 * Fields<Record>::wide_integers.size() +
    4 * Fields<Record>::strings.size();

static_assert(packed_min<MediaSource> == VANTRO_PACKED_MEDIA_SOURCE_MIN);
static_assert(packed_min<MediaNode> == VANTRO_PACKED_MEDIA_NODE_MIN);
static_assert(packed_min<Metadata> == VANTRO_PACKED_METADATA_MIN);

// Calls `work` with each field of a table until it returns false. Unlike a loop it compiles to code
// without a table: a long listing spends its time here.
template <class Table, class Work>
bool for_each_field(const Table &table, const Work &work) {
    return std::apply([&](auto... fields) { return (work(fields) && ...); }, table);
}

// The first string of the record that follows the last one of a block. No string has this address.
inline char *end_of_block() {
    return std::bit_cast<char *>(UINTPTR_MAX);
}

// A zero-filled block of `count` records, with a mark at its end. @return null: no memory.
template <class Record>
Record *allocate_records(size_t count) {
    auto *const records = static_cast<Record *>(std::calloc(count + 1, sizeof(Record)));
    if (records) {
        records[count].*Fields<Record>::strings[0] = end_of_block();
    }
    return records;
}

// The number of records in a block of allocate_records().
template <class Record>
int count_records(const Record *records) {
    int count = 0;
    while (records[count].*Fields<Record>::strings[0] != end_of_block()) {
        ++count;
    }
    return count;
}

// Frees the strings of `count` records, then the block.
template <class Record>
void free_records(Record *records, int count) {
    if (!records) {
        return;
    }
    for (int i = 0; i < count; i++) {
        for (auto string : Fields<Record>::strings) {
            std::free(records[i].*string);
        }
    }
    std::free(records);
}

} // namespace vantro::records

#endif
