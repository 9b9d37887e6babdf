// Writes records as bytes, for services.
#include <vantro/records.h>

#include "records/fields.h"
#include "records/packed_bytes.h"

namespace vantro::records {
namespace {

template <class Record>
bool pack_record(const Record &record, PackedWriter &writer) {
    using Layout = Fields<Record>;
    const auto put32 = [&](auto field) {
        return writer.put32(static_cast<uint32_t>(record.*field));
    };
    return for_each_field(Layout::integers, put32) &&
           for_each_field(Layout::wide_integers,
                          [&](auto field) { return writer.put64(record.*field); }) &&
           for_each_field(Layout::strings,
                          [&](auto field) { return writer.put_string(record.*field); });
}

template <class Record>
void pack(const Record *records, int count, void *buffer, int *size) {
    *size = 0;
    if (!records) {
        return;
    }
    PackedWriter writer(buffer);
    for (int i = 0; i < count; i++) {
        if (!pack_record(records[i], writer)) {
            return;
        }
    }
    *size = static_cast<int>(writer.written());
}

} // namespace
} // namespace vantro::records

using namespace vantro::records;

void pack_media_source(const ServiceMediaSource *records, int count, void *buffer, int *size) {
    pack(records, count, buffer, size);
}

void pack_media_node(const ServiceMediaNode *records, int count, void *buffer, int *size) {
    pack(records, count, buffer, size);
}

void pack_metadata(const Metadata *records, int count, void *buffer, int *size) {
    pack(records, count, buffer, size);
}
