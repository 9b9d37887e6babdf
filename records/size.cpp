// Computes the number of bytes that the packers will write.
#include <algorithm>
#include <cstring>

#include <vantro/records.h>

#include "records/fields.h"
#include "records/packed_bytes.h"

namespace vantro::records {
namespace {

template <class Record>
int packed_size(const Record *records, int count) {
    // The sum cannot overflow 64 bits, since it is limited after each string.
    uint64_t size = 0;
    for (int i = 0; i < count && size < packed_bytes_max; i++) {
        size += packed_min<Record>;
        for (auto string : Fields<Record>::strings) {
            if (records[i].*string) {
                size += std::strlen(records[i].*string);
            }
            size = std::min<uint64_t>(size, packed_bytes_max);
        }
    }
    return static_cast<int>(size);
}

} // namespace
} // namespace vantro::records

using namespace vantro::records;

int compute_media_node_size(const ServiceMediaNode *records, int count) {
    return packed_size(records, count);
}

int compute_metadata_size(const Metadata *records, int count) {
    return packed_size(records, count);
}
