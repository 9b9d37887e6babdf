#include "bench/own_query.h"

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include <sys/socket.h>
#include <unistd.h>

#include <fmt/format.h>

#include <vantro/protocol.h>

#include "bench/plain_copy.h"
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

// The argument of serve_query(): socket, source, count, state and directory.
constexpr size_t words_max = 5;

// Splits at colons. The last word is a path, which may contain colons itself.
std::vector<std::string> words_of(const std::string &text) {
    std::vector<std::string> words(1);
    for (const char c : text) {
        if (c == ':' && words.size() < words_max) {
            words.emplace_back();
        } else {
            words.back() += c;
        }
    }
    return words;
}

} // namespace

OwnQuery::OwnQuery(const std::string &directory, const std::string &state, int32_t source,
                   int32_t count) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) < 0) {
        fail_errno("socketpair");
    }
    socket_ = ends[0];
    peer_ = std::make_unique<Child>(
        std::vector<std::string>{
            program_beside(""), "--serve",
            fmt::format("query:{}:{}:{}:{}:{}", ends[1], source, count, state, directory)},
        ends[1]);
    close(ends[1]);
    uint64_t size = 0;
    if (!receive_all(socket_, &size, sizeof size)) {
        fail("the service's parts cannot be asked");
    }
    answer_.resize(size);
    if (!receive_all(socket_, answer_.data(), size)) {
        fail("the service's parts gave no answer");
    }
}

OwnQuery::~OwnQuery() {
    close(socket_);
}

Batch OwnQuery::batch() {
    return [this](size_t times, Samples &samples) {
        for (size_t i = 0; i < times; ++i) {
            const char once = 1;
            int64_t took = 0;
            if (!send_all(socket_, &once, sizeof once) ||
                !receive_all(socket_, &took, sizeof took)) {
                fail("the service's parts refused a listing");
            }
            samples.add(took);
        }
    };
}

int serve_query(const std::string &what) {
    const std::vector<std::string> words = words_of(what);
    if (words.size() != words_max) {
        return 2;
    }
    const int socket = std::atoi(words[0].c_str());
    service::catalogue::StoreOptions options;
    options.state = words[4] + '/' + words[3];
    options.music = {words[4] + "/collection"};
    const auto opened = open_store(std::move(options));
    if (!opened) {
        fail(last_words(opened.error()));
    }
    service::catalogue::Store *const store = (*opened).get();
    constexpr int32_t client = 0;
    service::playback::Players players(*store, {"main"},
                                       [] { return std::chrono::nanoseconds(0); });
    service::requests::Answers answers(*store, players);
    answers.opens().reset(client);

    service::requests::Bytes answer;
    const auto ask = [&](const std::string &request) {
        service::publishing::HeldBell bell;
        answers.respond(client, request.data(), request.size(), answer, bell);
        int32_t result = -1;
        std::memcpy(&result, answer.data(), sizeof result);
        if (result != 0) {
            fail("the service's parts refused a request");
        }
    };
    std::string open = request_of(VANTRO_COMMAND_OPEN);
    append_text(open, "main");
    ask(open);

    std::string browse = request_of(VANTRO_COMMAND_BROWSE);
    append(browse, static_cast<int32_t>(std::atoi(words[1].c_str())));
    append(browse, int32_t{0});
    append(browse, static_cast<int32_t>(std::atoi(words[2].c_str())));
    append_text(browse, "songs");
    ask(browse);
    const uint64_t size = answer.size();
    if (!send_all(socket, &size, sizeof size) || !send_all(socket, answer.data(), size)) {
        return 1;
    }
    char once = 0;
    while (receive_all(socket, &once, sizeof once)) {
        const int64_t begin = now_ns();
        ask(browse);
        const int64_t took = now_ns() - begin;
        if (!send_all(socket, &took, sizeof took)) {
            return 1;
        }
    }
    return 0;
}

} // namespace vantro::bench
