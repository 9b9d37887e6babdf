#include "transport/server/access.h"

#include <utility>

namespace vantro::transport {

namespace {

// The class of permission bits that applies to a client.
const char *class_of(path_context *context, const path_attr &attr, const ipc_credentials &client) {
    path_attr probe = {};
    probe.uid = attr.uid;
    probe.gid = attr.gid;
    for (const auto &[mode, name] : {std::pair{0600u, "its owner"}, {0060u, "its group"}}) {
        probe.mode = mode;
        if (path_check_access(context, &probe, PATH_ACCESS_READ, &client) == 0) {
            return name;
        }
    }
    return "others";
}

// The permission bits of `mask` that a client does not have.
void add_missing_bits(Refusal &refusal, path_context *context, const path_attr &attr, uint32_t mask,
                      const ipc_credentials &client) {
    const auto lacks = [&](uint32_t bit) {
        return (mask & bit) != 0 && path_check_access(context, &attr, bit, &client) != 0;
    };
    const bool reading = lacks(PATH_ACCESS_READ);
    const bool writing = lacks(PATH_ACCESS_WRITE);
    refusal.add("%s may not %s%s%s (permission bits %03o, owner %u, group %u)",
                class_of(context, attr, client), reading ? "read" : "",
                reading && writing ? " and " : "", writing ? "write" : "", attr.mode & 0777,
                attr.uid, attr.gid);
}

} // namespace

int check_path_access(path_context *context, path_attr *attr, uint32_t mask,
                      const ipc_credentials &client, const char *service_name,
                      std::optional<Refusal> &refusal) {
    path_attr_lock(attr);
    const int refused = path_check_access(context, attr, mask, &client);
    if (refused != 0 && service_name) {
        refusal.emplace(client, service_name);
        if (refusal->due()) {
            add_missing_bits(*refusal, context, *attr, mask, client);
        }
    }
    path_attr_unlock(attr);
    return refused;
}

} // namespace vantro::transport
