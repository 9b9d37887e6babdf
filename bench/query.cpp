#include "bench/query.h"

#include <chrono>
#include <cstring>
#include <memory>
#include <string_view>

#include <vantro/extras.h>
#include <vantro/protocol.h>
#include <vantro/records.h>

#include "bench/process.h"
#include "service/catalogue/store.h"
#include "service/requests/answers.h"

namespace vantro::bench {

namespace {

template <typename Value>
void append(std::string &bytes, const Value &value) {
    bytes.append(reinterpret_cast<const char *>(&value), sizeof value);
}

void append_text(std::string &bytes, std::string_view text) {
    append(bytes, static_cast<uint32_t>(text.size()));
    bytes += text;
}

std::string request_of(uint16_t command) {
    std::string bytes;
    append(bytes, RequestHeader{command, 0, 0, 0, 0});
    return bytes;
}

} // namespace

OwnQuery time_query(const std::string &music, const std::string &state, int32_t source,
                    int32_t count, size_t iterations) {
    StoreOptions options;
    options.state = state;
    options.music = {music};
    options.log = [](int, const std::string &) {};
    std::string wrong;
    const std::unique_ptr<Store> store = open_store(std::move(options), wrong);
    if (!store)
        fail(wrong);
    constexpr int32_t client = 0;
    Players players(*store, {"main"}, [] { return std::chrono::nanoseconds(0); });
    Answers answers(*store, players);
    answers.opens().reset(client);

    Bytes answer;
    const auto ask = [&](const std::string &request) {
        answers.respond(client, request.data(), request.size(), answer);
        int32_t result = -1;
        std::memcpy(&result, answer.data(), sizeof result);
        if (result != 0)
            fail("the service's parts refused a listing");
    };
    std::string open = request_of(VANTRO_COMMAND_OPEN);
    append_text(open, "main");
    ask(open);

    std::string browse = request_of(VANTRO_COMMAND_BROWSE);
    append(browse, source);
    append(browse, int32_t{0});
    append(browse, count);
    append_text(browse, "songs");
    OwnQuery query;
    query.samples = alternate({each([&] {
                                  Bytes().swap(answer); // as vantrod does after a long one
                                  ask(browse);
                              })},
                              iterations, 10)[0];
    query.answer_bytes = answer.size();

    // Nobody keeps a listing, but letting go of it is the application's time.
    constexpr size_t records_at = 8;
    int32_t found = 0;
    std::memcpy(&found, answer.data() + 4, sizeof found);
    for (size_t i = 0; i < iterations; ++i) {
        MediaNode *nodes = nullptr;
        const int64_t begin = now_ns();
        if (unpack_media_node(answer.data() + records_at,
                              static_cast<int>(answer.size() - records_at), found, &nodes) != 0)
            fail("the answer of the service's parts was not unpacked");
        query.unpacking.add(now_ns() - begin);
        vantro_free_media_nodes(nodes, found);
    }
    return query;
}

} // namespace vantro::bench
