// Who may open a service.
//
// An open by message needs every capability that the service requires (capability_check.h), then
// the permission bits below. An open by path needs only the permission bits. Last, the service's
// own open handler decides.
#ifndef VANTRO_TRANSPORT_SERVER_ACCESS_H
#define VANTRO_TRANSPORT_SERVER_ACCESS_H

#include <cstdint>
#include <optional>

#include <vantro/platform/message.h>
#include <vantro/platform/path.h>

#include "transport/server/refusals.h"

namespace vantro::transport {

// The attribute record of a service in path mode, with the service's name. The record comes first,
// since the path framework has a pointer to it.
struct ServiceAttributes {
    path_attr attr;
    const char *service_name; // null if refusals are not logged
};

// Calls path_check_access() with the record locked.
// @param service_name for the line in the log; null if nothing is logged.
// @param refusal      gets that line if the client is refused.
// @return 0, or EACCES.
int check_path_access(path_context *context, path_attr *attr, uint32_t mask,
                      const ipc_credentials &client, const char *service_name,
                      std::optional<Refusal> &refusal);

} // namespace vantro::transport

#endif
