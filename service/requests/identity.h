// How the service identifies a client.
#ifndef VANTRO_SERVICE_REQUESTS_IDENTITY_H
#define VANTRO_SERVICE_REQUESTS_IDENTITY_H

#include <string_view>

#include <vantro/extras.h>

#include "service/requests/user_limits.h"

namespace vantro::service::requests {

// @param capabilities the capabilities that a client must have, joined by commas; "" for none.
// @return 0, or a result word if the client has gone.
int identify(const Client &client, std::string_view capabilities, VantroIdentity &identity);

} // namespace vantro::service::requests

#endif
