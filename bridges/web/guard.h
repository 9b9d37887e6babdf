// Decides which requests are listened to at all.
#ifndef VANTRO_BRIDGES_WEB_GUARD_H
#define VANTRO_BRIDGES_WEB_GUARD_H

#include <string>
#include <string_view>
#include <vector>

#include "bridges/web/http.h"

namespace vantro::web {

// A browser runs pages of everybody beside ours, and sends their requests from this machine, or
// from within its network. Three things tell them apart:
//  - Host. After a page was loaded, the address of its name may be changed to ours (DNS rebinding).
//    Such a page sends that name. Addresses written as numbers cannot be rebound, so they are taken
//    as they are.
//  - Origin and Sec-Fetch-Site, which name the page that a request comes from.
//  - Content-Type. What a foreign page may send without asking first is not application/json.
class Guard {
  public:
    // @param hosts names by which clients may call this machine, beside "localhost" and its own.
    explicit Guard(const std::vector<std::string> &hosts);

    // @throws ApiError.
    void check(const RequestHead &head, const Target &target) const;

    // Whether it comes from a browser on this machine that called this machine, and not by a proxy,
    // whose clients may be anywhere.
    static bool is_local(const RequestHead &head);

  private:
    bool knows_host(std::string_view host) const;

    std::vector<std::string> hosts_;
};

// The host of "host:port", in small letters, without brackets and a last dot; empty where it is
// malformed.
std::string host_name(std::string_view host_and_port);

} // namespace vantro::web

#endif
