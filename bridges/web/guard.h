// Decides which requests are accepted at all.
#ifndef VANTRO_BRIDGES_WEB_GUARD_H
#define VANTRO_BRIDGES_WEB_GUARD_H

#include <string>
#include <string_view>
#include <vector>

#include "bridges/web/http.h"

namespace vantro::web {

// A browser also runs other sites' pages, and sends their requests from this machine, or from
// within its network. Three fields distinguish such requests:
//  - Host. After a page was loaded, the address of its name may be changed to ours (DNS rebinding).
//    Such a page sends that name. Numeric addresses cannot be rebound, so they are accepted.
// - Origin and Sec-Fetch-Site, which name the page from which a request comes.
// - Content-Type. A foreign page cannot send application/json without a preflight request.
class Guard {
  public:
    // @param hosts further names by which clients may address this machine, beside "localhost" and
    //     its host name.
    explicit Guard(const std::vector<std::string> &hosts);

    // @throws ApiError.
    void check(const RequestHead &head, const Target &target) const;

    // Whether a request comes from this machine, is addressed to it, and did not pass a proxy,
    // whose clients may be anywhere.
    static bool is_local(const RequestHead &head);

  private:
    bool knows_host(std::string_view host) const;

    std::vector<std::string> hosts_;
};

// The host of "host:port", in lower case, without brackets and final dot; empty if it is malformed.
std::string host_name(std::string_view host_and_port);

} // namespace vantro::web

#endif
