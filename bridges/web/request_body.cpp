#include "bridges/web/request_body.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>
#include <rapidjson/error/en.h>

#include "bridges/web/api_error.h"

namespace vantro::web {
namespace {

std::string_view string_of(const JsonValue &value) {
    return {value.GetString(), value.GetStringLength()};
}

// The service expects one id a line, so an id with a newline would be two.
std::string node_id_of(const JsonValue &value) {
    const std::string_view id = string_of(value);
    if (std::any_of(id.begin(), id.end(), [](char c) { return c >= 0 && c < ' '; })) {
        throw bad_request("an id contains a control character");
    }
    return std::string(id);
}

} // namespace

RequestBody::RequestBody(std::string_view text, const std::vector<std::string_view> &members) {
    if (text.empty()) {
        document_.SetObject();
        return;
    }
    // Parsed without recursion, so that a body of a million brackets does not exhaust the stack.
    constexpr unsigned flags =
        rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag;
    document_.Parse<flags>(text.data(), text.size());
    if (document_.HasParseError()) {
        throw bad_request(fmt::format("the body is not JSON: {} (byte {})",
                                      rapidjson::GetParseError_En(document_.GetParseError()),
                                      document_.GetErrorOffset()));
    }
    if (!document_.IsObject()) {
        throw bad_request("the body is not an object");
    }
    for (const auto &member : std::as_const(document_).GetObject()) {
        if (std::find(members.begin(), members.end(), string_of(member.name)) == members.end()) {
            throw bad_request("the body has an unknown member");
        }
    }
}

const JsonValue *RequestBody::find(const char *name) const {
    const auto found = document_.FindMember(name);
    return found == document_.MemberEnd() ? nullptr : &found->value;
}

const JsonValue &RequestBody::need(const char *name) const {
    const JsonValue *const value = find(name);
    if (!value) {
        throw bad_request(fmt::format("\"{}\" is missing", name));
    }
    return *value;
}

int32_t RequestBody::number(const char *name, int32_t least, int32_t most) const {
    const JsonValue &value = need(name);
    if (!value.IsInt() || value.GetInt() < least || value.GetInt() > most) {
        throw bad_request(fmt::format("\"{}\" is not a number from {} to {}", name, least, most));
    }
    return value.GetInt();
}

int32_t RequestBody::number_or(const char *name, int32_t least, int32_t most,
                               int32_t otherwise) const {
    return has(name) ? number(name, least, most) : otherwise;
}

double RequestBody::real(const char *name) const {
    const JsonValue &value = need(name);
    if (!value.IsNumber()) {
        throw bad_request(fmt::format("\"{}\" is not a number", name));
    }
    return value.GetDouble();
}

bool RequestBody::boolean(const char *name) const {
    const JsonValue &value = need(name);
    if (!value.IsBool()) {
        throw bad_request(fmt::format("\"{}\" is not true or false", name));
    }
    return value.GetBool();
}

bool RequestBody::boolean_or(const char *name, bool otherwise) const {
    return has(name) ? boolean(name) : otherwise;
}

std::string RequestBody::text(const char *name) const {
    const JsonValue &value = need(name);
    if (!value.IsString()) {
        throw bad_request(fmt::format("\"{}\" is not a text", name));
    }
    return std::string(string_of(value));
}

std::vector<NodeKey> RequestBody::nodes(const char *name) const {
    const JsonValue &list = need(name);
    if (!list.IsArray() || list.Empty()) {
        throw bad_request(fmt::format("\"{}\" is not a list of nodes", name));
    }
    std::vector<NodeKey> nodes;
    for (const JsonValue &each : list.GetArray()) {
        const bool object = each.IsObject();
        const auto source =
            object ? each.FindMember("source_id") : JsonValue::ConstMemberIterator();
        const auto id = object ? each.FindMember("id") : JsonValue::ConstMemberIterator();
        if (!object || source == each.MemberEnd() || id == each.MemberEnd() ||
            !source->value.IsInt() || source->value.GetInt() < 1 || !id->value.IsString()) {
            throw bad_request("a node is {\"source_id\": NUMBER, \"id\": TEXT}");
        }
        nodes.push_back({source->value.GetInt(), node_id_of(id->value)});
    }
    return nodes;
}

} // namespace vantro::web
