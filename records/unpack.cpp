// Makes records from bytes. The bytes come from another process and are not trusted: every length
// is checked against the bytes left before it is used, and the count against the smallest record
// before memory is allocated for it.
#include "records/unpack.h"

#include "records/fields.h"
#include "records/packed_bytes.h"

namespace vantro::records {
namespace {

template <class Record>
bool unpack_record(PackedReader &reader, Record &record) {
    using Layout = Fields<Record>;
    const auto get32 = [&](auto field) {
        uint32_t word = 0;
        if (!reader.get32(word)) {
            return false;
        }
        record.*field = static_cast<int32_t>(word);
        return true;
    };
    return for_each_field(Layout::integers, get32) &&
           for_each_field(Layout::wide_integers,
                          [&](auto field) { return reader.get64(record.*field); }) &&
           for_each_field(Layout::strings,
                          [&](auto field) { return reader.get_string(record.*field); });
}

// The public form. The caller's pointer is unchanged if the bytes cannot hold that many records,
// and becomes null at a later failure.
template <class Record>
int unpack(const void *buffer, int size, int count, Record **records) {
    if (!buffer || !records || size < 1) {
        return -1;
    }
    Record *block = nullptr;
    const Unpacked result = unpack_records(buffer, static_cast<size_t>(size), count, block);
    if (result != Unpacked::refused) {
        *records = block;
    }
    return result == Unpacked::done ? 0 : -1;
}

} // namespace

template <class Record>
Unpacked unpack_records(const void *buffer, size_t size, int32_t count, Record *&records) {
    if (count < 1 || static_cast<size_t>(count) > size / packed_min<Record>) {
        return Unpacked::refused;
    }
    auto *const block = allocate_records<Record>(static_cast<size_t>(count));
    if (!block) {
        return Unpacked::no_memory;
    }
    PackedReader reader(buffer, size);
    for (int32_t i = 0; i < count; i++) {
        if (!unpack_record(reader, block[i])) {
            // Strings that were not reached are null in the zero-filled block.
            free_records(block, i + 1);
            return reader.short_of_memory() ? Unpacked::no_memory : Unpacked::malformed;
        }
    }
    records = block;
    return Unpacked::done;
}

template Unpacked unpack_records(const void *, size_t, int32_t, MediaSource *&);
template Unpacked unpack_records(const void *, size_t, int32_t, MediaNode *&);
template Unpacked unpack_records(const void *, size_t, int32_t, Metadata *&);

} // namespace vantro::records

using namespace vantro::records;

int unpack_media_source(const void *buffer, int size, int count, MediaSource **records) {
    return unpack(buffer, size, count, records);
}

int unpack_media_node(const void *buffer, int size, int count, MediaNode **records) {
    return unpack(buffer, size, count, records);
}

int unpack_metadata(const void *buffer, int size, int count, Metadata **records) {
    return unpack(buffer, size, count, records);
}
