// Requests, as a client might send them, one after the other to one service: whatever they are,
// each gets an answer of exactly the length of its command, or a refusal of four bytes.
//
// An input is a sequence of: open record (1 byte), length (1 byte), that many bytes of request.
#include <cstring>
#include <vector>

#include <vantro/extras.h>
#include <vantro/protocol.h>

#include "fuzz/support.h"
#include "service/requests/answers.h"
#include "tests/support/memory_catalogue.h"

using namespace vantro;

namespace {

using vantro::fuzz::require;

template <typename Value>
Value read(const vantro::service::requests::Bytes &bytes, size_t at) {
    require(bytes.size() >= at + sizeof(Value));
    Value value;
    std::memcpy(&value, bytes.data() + at, sizeof value);
    return value;
}

template <typename Record>
size_t records_length(const vantro::service::requests::Bytes &answer, size_t at, int count,
                      int (*unpack)(const void *, int, int, Record **),
                      void (*release)(Record *, int)) {
    Record *records = nullptr;
    require(count == 0 ||
            unpack(answer.data() + at, static_cast<int>(answer.size() - at), count, &records) == 0);
    release(records, count);
    return answer.size();
}

// The offset after `count` texts, each with its length before it.
size_t end_of_texts(const vantro::service::requests::Bytes &answer, size_t at, int64_t count) {
    for (int64_t i = 0; i < count; ++i) {
        at += 4 + read<uint32_t>(answer, at);
    }
    return at;
}

size_t answer_length(const vantro::service::requests::Bytes &request,
                     const vantro::service::requests::Bytes &answer) {
    const auto command = read<uint16_t>(request, 0);
    switch (command) {
    case VANTRO_COMMAND_GET_MEDIA_SOURCES:
        return records_length(answer, 8, read<int32_t>(answer, 4), unpack_media_source,
                              vantro_free_media_sources);
    case VANTRO_COMMAND_BROWSE:
    case VANTRO_COMMAND_SEARCH:
    case VANTRO_COMMAND_GET_TRKSESSION_TRACKS:
        return records_length(answer, 8, read<int32_t>(answer, 4), unpack_media_node,
                              vantro_free_media_nodes);
    case VANTRO_COMMAND_BROWSE_METADATA:
    case VANTRO_COMMAND_SEARCH_METADATA:
    case VANTRO_COMMAND_GET_TRKSESSION_TRACKS_METADATA: {
        const auto count = read<int32_t>(answer, 4);
        const size_t metadata = 12 + read<uint32_t>(answer, 8);
        require(metadata <= answer.size());
        const vantro::service::requests::Bytes nodes(
            answer.begin(), answer.begin() + static_cast<ptrdiff_t>(metadata));
        records_length(nodes, 12, count, unpack_media_node, vantro_free_media_nodes);
        return records_length(answer, metadata, count, unpack_metadata, vantro_free_metadata);
    }
    case VANTRO_COMMAND_LIST_PLAYERS:
        return end_of_texts(answer, 8, read<int32_t>(answer, 4));
    case VANTRO_COMMAND_GET_METADATA:
        return answer.size() == 4
                   ? 4
                   : records_length(answer, 4, 1, unpack_metadata, vantro_free_metadata);
    case VANTRO_COMMAND_GET_EXTENDED_METADATA:
        // One value for each key of the request.
        return end_of_texts(answer, 4, read<uint32_t>(request, 24 + read<uint32_t>(request, 20)));
    case VANTRO_COMMAND_CREATE_TRKSESSION:
        require(read<uint64_t>(answer, 4) >= 1 && read<uint64_t>(answer, 4) <= INT32_MAX);
        return 12;
    case VANTRO_COMMAND_GET_CURRENT_STATE:
        require(read<int32_t>(answer, 4) >= 1 && read<int32_t>(answer, 4) <= 4);
        require(read<float>(answer, 8) > 0 &&
                read<float>(answer, 8) <= vantro::service::playback::rate_max);
        return 20;
    case VANTRO_COMMAND_GET_CURRENT_TRKSESSION_INFO:
        return 20;
    case VANTRO_COMMAND_GET_CURRENT_TRACK_INFO:
        return 24 + read<uint32_t>(answer, 16) + read<uint32_t>(answer, 20);
    case VANTRO_COMMAND_GET_STATUS:
        return 60 + read<uint32_t>(answer, 52) + read<uint32_t>(answer, 56);
    case VANTRO_COMMAND_GET_CURRENT_TRACK_POSITION:
        require(read<int32_t>(answer, 4) >= 0 && read<int32_t>(answer, 4) <= 20'000);
        return 8;
    case VANTRO_COMMAND_GET_VOLUME:
        require(read<uint32_t>(answer, 4) <= 100 && read<uint32_t>(answer, 8) <= 1);
        return 12;
    default:
        return 4;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    vantro::test::MemoryCatalogue catalogue({20'000, 19'999, 19'998, 19'997, 19'996});
    catalogue.gone = 2;
    std::chrono::seconds now{0};
    vantro::service::playback::Players players(catalogue, {"main", "kitchen"},
                                               [&] { return now += std::chrono::seconds(1); });
    vantro::service::requests::Answers answers(catalogue, players);
    for (int32_t open = 0; open < 4; ++open) {
        answers.opens().reset(open);
    }

    while (size >= 2) {
        const int32_t open = data[0] % 8 - 2; // the records at both ends were never opened
        const size_t length = std::min<size_t>(data[1], size - 2);
        const vantro::service::requests::Bytes request(
            data + 2, data + 2 + length); // a copy, so that its end is guarded
        data += 2 + length;
        size -= 2 + length;

        vantro::service::requests::Bytes answer;
        service::publishing::HeldBell bell;
        answers.respond(open, request.data(), request.size(), answer, bell);
        if (read<int32_t>(answer, 0) != 0) {
            require(answer.size() == 4);
        } else {
            require(answer.size() == answer_length(request, answer));
        }
    }
    return 0;
}
