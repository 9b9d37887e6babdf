#include "bridges/web/guard.h"

#include <algorithm>
#include <array>
#include <utility>

#include <arpa/inet.h>
#include <unistd.h>

#include "bridges/web/api_error.h"

namespace vantro::web {
namespace {

std::string lower(std::string_view text) {
    std::string small(text);
    for (char &c : small) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return small;
}

bool is_address(const std::string &host) {
    std::array<unsigned char, sizeof(in6_addr)> bytes{};
    return inet_pton(AF_INET, host.c_str(), bytes.data()) == 1 ||
           inet_pton(AF_INET6, host.c_str(), bytes.data()) == 1;
}

bool is_this_machine(const std::string &host) {
    return host == "localhost" || host == "::1" || (host.starts_with("127.") && is_address(host));
}

bool is_same_origin(const RequestHead &head) {
    const std::string host = lower(head.host);
    const std::string origin = lower(head.origin);
    return origin == "http://" + host || origin == "https://" + host;
}

} // namespace

std::string host_name(std::string_view host_and_port) {
    std::string_view host = host_and_port;
    std::string_view port;
    if (host.starts_with('[')) {
        const size_t end = host.find(']');
        if (end == std::string_view::npos) {
            return "";
        }
        port = host.substr(end + 1);
        host = host.substr(1, end - 1);
    } else {
        const size_t colon = std::min(host.find(':'), host.size());
        port = host.substr(colon);
        host = host.substr(0, colon);
    }
    const bool number = port.empty() || (port.starts_with(':') && port.size() <= 6 &&
                                         std::all_of(port.begin() + 1, port.end(),
                                                     [](char c) { return c >= '0' && c <= '9'; }));
    if (!number || host.find('\0') != std::string_view::npos) {
        return "";
    }
    if (host.ends_with('.')) {
        host.remove_suffix(1);
    }
    return lower(host);
}

Guard::Guard(const std::vector<std::string> &hosts) {
    for (const std::string &host : hosts) {
        hosts_.push_back(host_name(host));
    }
    std::array<char, 256> name{};
    if (gethostname(name.data(), name.size() - 1) == 0 && name[0] != '\0') {
        hosts_.push_back(lower(name.data()));
        hosts_.push_back(lower(name.data()) + ".local"); // as multicast DNS knows it
    }
}

bool Guard::knows_host(std::string_view host) const {
    const std::string name = host_name(host);
    return !name.empty() && (name == "localhost" || is_address(name) ||
                             std::find(hosts_.begin(), hosts_.end(), name) != hosts_.end());
}

void Guard::check(const RequestHead &head, const Target &target) const {
    if (!knows_host(head.host)) {
        throw ApiError(403, "wrong_host",
                       "this machine does not have that name; vantro-web --host adds names");
    }
    const bool is_api = !target.segments.empty() && target.segments.front() == "api";
    if (!head.origin.empty() && !is_same_origin(head)) {
        throw ApiError(403, "foreign_origin", "another page may not send requests here");
    }
    // Links from other pages to this one work, but only this page may use the API.
    if (is_api && !head.fetch_site.empty() && head.fetch_site != "same-origin" &&
        head.fetch_site != "none") {
        throw ApiError(403, "foreign_origin", "another page may not send requests here");
    }
    if (head.method == "POST") {
        const std::string_view type = head.content_type;
        if (lower(type.substr(0, type.find(';'))) != "application/json") {
            throw ApiError(415, "wrong_content_type", "the content type is not application/json");
        }
    }
}

bool Guard::is_local(const RequestHead &head) {
    return head.from_loopback && !head.forwarded && is_this_machine(host_name(head.host));
}

} // namespace vantro::web
