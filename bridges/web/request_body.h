// The JSON object in a request's body.
#ifndef VANTRO_BRIDGES_WEB_REQUEST_BODY_H
#define VANTRO_BRIDGES_WEB_REQUEST_BODY_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "bridges/web/json_memory.h"

namespace vantro::web {

// Enough for some ten thousand ids of nodes.
constexpr size_t body_bytes_max = size_t{1} << 20;

// A node of the catalogue.
struct NodeKey {
    int32_t source = 0;
    std::string id;
    bool operator==(const NodeKey &) const = default;
};

// Each function throws ApiError if the value is missing or invalid.
class RequestBody {
  public:
    // @param text an object; empty counts as {}.
    // @param members the allowed members; others are refused, so that a misspelt one is noticed.
    RequestBody(std::string_view text, const std::vector<std::string_view> &members);

    bool has(const char *name) const { return find(name) != nullptr; }
    int32_t number(const char *name, int32_t least, int32_t most) const;
    int32_t number_or(const char *name, int32_t least, int32_t most, int32_t otherwise) const;
    double real(const char *name) const;
    bool boolean(const char *name) const;
    bool boolean_or(const char *name, bool otherwise) const;
    std::string text(const char *name) const;
    std::vector<NodeKey> nodes(const char *name) const;

  private:
    const JsonValue *find(const char *name) const;
    const JsonValue &need(const char *name) const;

    JsonDocument document_;
};

} // namespace vantro::web

#endif
