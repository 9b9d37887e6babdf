// Requests, as a client might send them, one after the other to one service: whatever they are,
// each gets an answer of exactly the length of its command, or a refusal of four bytes.
//
// An input is a sequence of: open record (1 byte), length (1 byte), that many bytes of request.
#include <cstring>
#include <vector>

#include <vantro/protocol.h>
#include <vantro/records.h>

#include "service/requests/answers.h"

using namespace vantro;

namespace {

void require(bool holds) {
    if (!holds)
        __builtin_trap();
}

template <typename Value>
Value read(const Bytes &bytes, std::size_t at) {
    require(bytes.size() >= at + sizeof(Value));
    Value value;
    std::memcpy(&value, bytes.data() + at, sizeof value);
    return value;
}

std::size_t answer_length(uint16_t command, const Bytes &answer) {
    switch (command) {
    case VANTRO_COMMAND_GET_CURRENT_STATE:
        require(read<int32_t>(answer, 4) >= 1 && read<int32_t>(answer, 4) <= 4);
        require(read<float>(answer, 8) > 0 && read<float>(answer, 8) <= rate_max);
        return 20;
    case VANTRO_COMMAND_GET_CURRENT_TRKSESSION_INFO:
        return 20;
    case VANTRO_COMMAND_GET_CURRENT_TRACK_INFO:
        return 24 + read<uint32_t>(answer, 16) + read<uint32_t>(answer, 20);
    case VANTRO_COMMAND_GET_CURRENT_TRACK_POSITION:
        require(read<int32_t>(answer, 4) >= 0 && read<int32_t>(answer, 4) <= 20'000);
        return 8;
    default:
        return 4;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    std::vector<Track> tracks(3);
    for (std::size_t i = 0; i < tracks.size(); ++i) {
        tracks[i].id = tracks[i].title = std::string(i + 1, 'x');
        tracks[i].duration_ms = 20'000 - static_cast<int32_t>(i);
    }
    std::chrono::seconds now{0};
    Answers answers(tracks, {"main", "kitchen"}, [&] { return now += std::chrono::seconds(1); });
    for (int32_t open = 0; open < 4; ++open)
        answers.opens().reset(open);

    while (size >= 2) {
        const int32_t open = data[0] % 8 - 2; // those at the ends were never opened
        const std::size_t length = std::min<std::size_t>(data[1], size - 2);
        const Bytes request(data + 2, data + 2 + length); // a copy, so that its end is guarded
        data += 2 + length;
        size -= 2 + length;

        Bytes answer;
        answers.respond(open, request.data(), request.size(), answer);
        if (read<int32_t>(answer, 0) != 0)
            require(answer.size() == 4);
        else
            require(answer.size() == answer_length(read<uint16_t>(request, 0), answer));
    }
    return 0;
}
