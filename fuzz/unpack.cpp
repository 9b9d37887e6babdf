// Bytes of a reply, as a service might send them: whatever they are, the unpackers neither read
// beyond them nor leave anything behind, and what they make packs and unpacks to itself.
//
// An input is the kind of record (1 byte), the count (4 bytes), then the packed records.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include <vantro/extras.h>

#include "records/fields.h"

namespace {

using vantro::Fields;

void require(bool holds) {
    if (!holds)
        __builtin_trap();
}

template <class To, class From>
To service_record(const From &from) {
    To to{};
    const auto copy = [&](const auto &to_fields, const auto &from_fields) {
        for (std::size_t i = 0; i < from_fields.size(); i++)
            to.*to_fields[i] = from.*from_fields[i];
    };
    copy(Fields<To>::integers, Fields<From>::integers);
    copy(Fields<To>::wide_integers, Fields<From>::wide_integers);
    copy(Fields<To>::strings, Fields<From>::strings);
    return to;
}

template <class Record>
bool same(const Record &a, const Record &b) {
    for (auto field : Fields<Record>::integers)
        if (a.*field != b.*field)
            return false;
    for (auto field : Fields<Record>::wide_integers)
        if (a.*field != b.*field)
            return false;
    for (auto field : Fields<Record>::strings) {
        // A string that begins with a NUL is empty once it is a C string, and comes back absent.
        const char *left = a.*field ? a.*field : "";
        const char *right = b.*field ? b.*field : "";
        if (std::strcmp(left, right) != 0)
            return false;
    }
    return true;
}

template <class Service, class Record>
void try_bytes(const std::uint8_t *data, int size, int count,
               int (*unpack)(const void *, int, int, Record **),
               void (*pack)(const Service *, int, void *, int *),
               int (*compute)(const Service *, int)) {
    Record untouched{};
    Record *records = &untouched;
    if (unpack(data, size, count, &records) != 0) {
        require(records == nullptr || records == &untouched);
        return;
    }
    std::vector<Service> service;
    for (int i = 0; i < count; i++)
        service.push_back(service_record<Service>(records[i]));
    // Never longer than what it came from: strings end at their first NUL, lengths below -1 at -1.
    std::vector<std::uint8_t> packed(static_cast<std::size_t>(size));
    int packed_size = 0;
    pack(service.data(), count, packed.data(), &packed_size);
    require(packed_size <= size && (!compute || compute(service.data(), count) == packed_size));

    Record *again = nullptr;
    require(unpack(packed.data(), packed_size, count, &again) == 0);
    for (int i = 0; i < count; i++)
        require(same(records[i], again[i]));
    vantro::free_records(again, count);
    vantro::free_records(records, count);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t length) {
    if (length < 5)
        return 0;
    std::int32_t count = 0;
    std::memcpy(&count, data + 1, sizeof count);
    const std::uint8_t *bytes = data + 5;
    const int size = static_cast<int>(length - 5);
    if (data[0] % 3 == 0)
        try_bytes<ServiceMediaSource>(bytes, size, count, unpack_media_source, pack_media_source,
                                      nullptr);
    else if (data[0] % 3 == 1)
        try_bytes<ServiceMediaNode>(bytes, size, count, unpack_media_node, pack_media_node,
                                    compute_media_node_size);
    else
        try_bytes<Metadata>(bytes, size, count, unpack_metadata, pack_metadata,
                            compute_metadata_size);
    return 0;
}
