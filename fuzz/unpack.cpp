// Bytes of a reply, as a service might send them: whatever they are, the unpackers neither read
// beyond them nor leak, and what they make is the same after packing and unpacking.
//
// An input is the kind of record (1 byte), the count (4 bytes), then the packed records.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include <vantro/extras.h>

#include "fuzz/support.h"
#include "records/fields.h"

namespace {

using vantro::fuzz::require;
using vantro::records::Fields;

// The service's form of a record. A string that begins with a NUL is empty in C, and the next turn
// would make it absent.
template <class To, class From>
To service_record(const From &from) {
    using Target = Fields<To>;
    using Source = Fields<From>;
    To to{};
    for (size_t i = 0; i < Source::integers.size(); i++) {
        to.*Target::integers[i] = from.*Source::integers[i];
    }
    for (size_t i = 0; i < Source::wide_integers.size(); i++) {
        to.*Target::wide_integers[i] = from.*Source::wide_integers[i];
    }
    for (size_t i = 0; i < Source::strings.size(); i++) {
        if (char *text = from.*Source::strings[i]; text && *text) {
            to.*Target::strings[i] = text;
        }
    }
    return to;
}

template <class Service, class Record>
void try_bytes(const uint8_t *data, int size, int count,
               int (*unpack)(const void *, int, int, Record **),
               void (*pack)(const Service *, int, void *, int *),
               int (*compute)(const Service *, int)) {
    std::vector<uint8_t> bytes(data, data + size), before;
    // The second and third turn unpack what the one before packed, and must give the same.
    for (int turn = 0; turn < 3; turn++) {
        Record untouched{};
        Record *records = &untouched;
        const int left = static_cast<int>(bytes.size());
        if (unpack(bytes.data(), left, count, &records) != 0) {
            require(turn == 0 && (records == nullptr || records == &untouched));
            return;
        }
        std::vector<Service> service;
        service.reserve(static_cast<size_t>(count));
        for (int i = 0; i < count; i++) {
            service.push_back(service_record<Service>(records[i]));
        }
        before = std::exchange(bytes, std::vector<uint8_t>(bytes.size()));
        int packed = 0;
        pack(service.data(), count, bytes.data(), &packed);
        // Never longer than its source, since a string ends at its first NUL.
        require(packed <= left && (!compute || compute(service.data(), count) == packed));
        bytes.resize(static_cast<size_t>(packed));
        require(turn == 0 || bytes == before);
        vantro::records::free_records(records, count);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t length) {
    if (length < 5) {
        return 0;
    }
    int32_t count = 0;
    std::memcpy(&count, data + 1, sizeof count);
    const uint8_t *bytes = data + 5;
    const int size = static_cast<int>(length - 5);
    if (data[0] % 3 == 0) {
        try_bytes<ServiceMediaSource>(bytes, size, count, unpack_media_source, pack_media_source,
                                      nullptr);
    } else if (data[0] % 3 == 1) {
        try_bytes<ServiceMediaNode>(bytes, size, count, unpack_media_node, pack_media_node,
                                    compute_media_node_size);
    } else {
        try_bytes<Metadata>(bytes, size, count, unpack_metadata, pack_metadata,
                            compute_metadata_size);
    }
    return 0;
}
