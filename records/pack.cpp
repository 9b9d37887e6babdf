// Writing records as bytes, for the service's side.
#include <vantro/records.h>

#include "records/bytes.h"
#include "records/fields.h"

namespace vantro {
namespace {

template <class Record>
bool pack_record(const Record &record, Writer &writer) {
    using Layout = Fields<Record>;
    for (auto integer : Layout::integers)
        if (!writer.put32(static_cast<std::uint32_t>(record.*integer)))
            return false;
    for (auto integer : Layout::wide_integers)
        if (!writer.put64(record.*integer))
            return false;
    for (auto string : Layout::strings)
        if (!writer.put_string(record.*string))
            return false;
    return true;
}

template <class Record>
void pack(const Record *records, int count, void *buffer, int *size) {
    *size = 0;
    if (!records)
        return;
    Writer writer(buffer);
    for (int i = 0; i < count; i++)
        if (!pack_record(records[i], writer))
            return;
    *size = static_cast<int>(writer.written());
}

} // namespace
} // namespace vantro

void pack_media_source(const ServiceMediaSource *records, int count, void *buffer, int *size) {
    vantro::pack(records, count, buffer, size);
}

void pack_media_node(const ServiceMediaNode *records, int count, void *buffer, int *size) {
    vantro::pack(records, count, buffer, size);
}

void pack_metadata(const Metadata *records, int count, void *buffer, int *size) {
    vantro::pack(records, count, buffer, size);
}
