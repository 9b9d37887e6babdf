// Unpacking for the library's own calls, which must know the reason of a failure: the value of a
// caller's pointer after a query depends on it.
#ifndef VANTRO_RECORDS_UNPACK_H
#define VANTRO_RECORDS_UNPACK_H

#include <cstddef>
#include <cstdint>

#include <vantro/records.h>

namespace vantro::records {

enum class Unpacked {
    done,
    refused, // No records were requested, or more than the bytes can hold. No memory was allocated.
    malformed, // The bytes end within a record.
    no_memory,
};

// Makes `count` records from the `size` bytes at `buffer`; bytes after the last record are ignored.
// `records` receives the new block on success, and is unchanged otherwise. errno may change.
template <class Record>
Unpacked unpack_records(const void *buffer, size_t size, int32_t count, Record *&records);

extern template Unpacked unpack_records(const void *, size_t, int32_t, MediaSource *&);
extern template Unpacked unpack_records(const void *, size_t, int32_t, MediaNode *&);
extern template Unpacked unpack_records(const void *, size_t, int32_t, Metadata *&);

} // namespace vantro::records

#endif
