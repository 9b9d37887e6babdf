// Unpacking for the library's own calls, which must know why it failed: what a caller's pointer
// holds after a query depends on it.
#ifndef VANTRO_RECORDS_UNPACK_H
#define VANTRO_RECORDS_UNPACK_H

#include <cstddef>
#include <cstdint>

#include <vantro/records.h>

namespace vantro::records {

enum class Unpacked {
    done,
    refused,   // No records were asked for, or more than the bytes can hold. No memory was taken.
    malformed, // The bytes end within a record.
    no_memory,
};

// Makes `count` records of the `size` bytes at `buffer`; bytes after the last are ignored.
// `records` receives the new block on success, and is left alone otherwise. errno may
// change.
template <class Record>
Unpacked unpack_records(const void *buffer, size_t size, int32_t count, Record *&records);

extern template Unpacked unpack_records(const void *, size_t, int32_t, MediaSource *&);
extern template Unpacked unpack_records(const void *, size_t, int32_t, MediaNode *&);
extern template Unpacked unpack_records(const void *, size_t, int32_t, Metadata *&);

} // namespace vantro::records

#endif
