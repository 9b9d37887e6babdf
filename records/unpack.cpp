// Making records from bytes. The bytes come from another process and may be anything: every length
// is held against what is left before it is used, and the count against the smallest record before
// memory is taken for it.
#include <vantro/records.h>

#include "records/bytes.h"
#include "records/fields.h"

namespace vantro {
namespace {

template <class Record>
bool unpack_record(Reader &reader, Record &record) {
    using Layout = Fields<Record>;
    for (auto integer : Layout::integers) {
        std::uint32_t word = 0;
        if (!reader.get32(word))
            return false;
        record.*integer = static_cast<std::int32_t>(word);
    }
    for (auto integer : Layout::wide_integers)
        if (!reader.get64(record.*integer))
            return false;
    for (auto string : Layout::strings)
        if (!reader.get_string(record.*string))
            return false;
    return true;
}

template <class Record>
int unpack(const void *buffer, int size, int count, Record **records) {
    if (!buffer || !records || size < 1 || count < 1)
        return -1;
    const auto bytes = static_cast<std::size_t>(size);
    if (static_cast<std::size_t>(count) > bytes / packed_min<Record>)
        return -1;

    auto *block =
        static_cast<Record *>(std::calloc(static_cast<std::size_t>(count), sizeof(Record)));
    *records = block;
    if (!block)
        return -1;
    Reader reader(buffer, bytes);
    for (int i = 0; i < count; i++) {
        if (!unpack_record(reader, block[i])) {
            // Strings not reached are null in the zero-filled block.
            free_records(block, i + 1);
            *records = nullptr;
            return -1;
        }
    }
    return 0;
}

} // namespace
} // namespace vantro

int unpack_media_source(const void *buffer, int size, int count, MediaSource **records) {
    return vantro::unpack(buffer, size, count, records);
}

int unpack_media_node(const void *buffer, int size, int count, MediaNode **records) {
    return vantro::unpack(buffer, size, count, records);
}

int unpack_metadata(const void *buffer, int size, int count, Metadata **records) {
    return vantro::unpack(buffer, size, count, records);
}
