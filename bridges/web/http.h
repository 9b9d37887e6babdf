// A request and its answer, independent of the HTTP library.
#ifndef VANTRO_BRIDGES_WEB_HTTP_H
#define VANTRO_BRIDGES_WEB_HTTP_H

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bridges/sockets/descriptor.h"
#include "bridges/web/target.h"

namespace vantro::web {

using sockets::Descriptor;

// The parts of a request that are checked before its body. Missing fields are empty.
struct RequestHead {
    std::string method;
    std::string host;
    std::string origin;
    std::string fetch_site; // Sec-Fetch-Site: which page made the browser send it.
    std::string content_type;
    std::string known_etag; // If-None-Match
    std::string token;      // The cookie from pairing.
    bool from_loopback = false;
    bool forwarded = false; // A proxy has forwarded the request.
    bool secure = false;    // The request reached that proxy by TLS.
};

struct Request {
    RequestHead head;
    Target target;
    std::string body;
};

struct Response {
    int status = 200;
    const char *type = "application/json";
    std::shared_ptr<const std::string> body;
    Descriptor file; // The body, if there is one.
    uint64_t file_size = 0;
    std::vector<std::pair<const char *, std::string>> headers;
    std::string followed_player; // Not empty: an endless stream of this player's events.

    static Response json(std::string text) {
        Response response;
        response.body = std::make_shared<const std::string>(std::move(text));
        return response;
    }
    static Response nothing() {
        Response response;
        response.status = 204;
        return response;
    }
};

} // namespace vantro::web

#endif
