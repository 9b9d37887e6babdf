// What a browser sends: the address, the host and the body of a request.
//
// The input is an address, a host and a body, one a line; the body is the rest. What is accepted is
// within its documented limits, and the JSON written from it is valid.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <rapidjson/document.h>

#include "bridges/web/api_error.h"
#include "bridges/web/guard.h"
#include "bridges/web/json_writer.h"
#include "bridges/web/request_body.h"
#include "bridges/web/target.h"
#include "fuzz/support.h"

using namespace vantro::web;
using vantro::fuzz::require;

namespace {

bool is_plain(const std::string &text) {
    return std::none_of(text.begin(), text.end(),
                        [](char c) { return static_cast<unsigned char>(c) < ' '; });
}

void try_target(std::string_view address) {
    try {
        const Target target = Target::parse(address);
        for (const std::string &segment : target.segments) {
            require(segment != ".." && segment != "." && is_plain(segment));
        }
        for (const auto &[name, value] : target.query) {
            require(is_plain(name) && is_plain(value));
        }
        const int64_t offset = target.number("offset", 0, 100, 7);
        require(offset >= 0 && offset <= 100);
    } catch (const ApiError &error) {
        require(error.status() == 400 || error.status() == 414);
    }
}

void try_host(std::string_view host) {
    static const Guard guard({"music.example"});
    RequestHead head;
    head.method = "GET";
    head.host = host;
    head.from_loopback = true;
    bool known = true;
    try {
        guard.check(head, Target());
    } catch (const ApiError &) {
        known = false;
    }
    require(known || !Guard::is_local(head));
    const std::string name = host_name(host);
    require(name.find_first_of("[]") == std::string::npos || !known);
}

void try_body(std::string_view text) {
    JsonWriter json;
    json.begin_object().key("copy").text(text);
    const std::string written = json.end_object().take();
    rapidjson::Document again;
    constexpr unsigned strict = rapidjson::kParseValidateEncodingFlag;
    require(!again.Parse<strict>(written.data(), written.size()).HasParseError());
    try {
        const RequestBody body(text, {"nodes", "index", "rate", "play", "code"});
        const int32_t index = body.number_or("index", 0, 10, 3);
        require(index >= 0 && index <= 10);
        (void)body.boolean_or("play", true);
        for (const NodeKey &node : body.nodes("nodes")) {
            require(node.source > 0 && is_plain(node.id));
        }
    } catch (const ApiError &error) {
        require(error.status() == 400);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t length) {
    std::string_view rest(reinterpret_cast<const char *>(data), length);
    const auto line = [&rest] {
        const std::string_view taken = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(rest.size(), taken.size() + 1));
        return taken;
    };
    try_target(line());
    try_host(line());
    try_body(rest);
    return 0;
}
