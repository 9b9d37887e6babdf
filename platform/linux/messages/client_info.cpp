// The identity of a client: its credentials, its groups, and the path that it opened.
#include <algorithm>
#include <cerrno>

#include "platform/linux/messages/server.h"
#include "platform/portable/guards.h"

using namespace vantro::platform;
using vantro::MutexLock;

int connect_client_info(int conn_id, struct ipc_credentials *credentials, int max_groups) {
    if (kind_of(conn_id) != NumberKind::client_id) {
        return fail(EBADF);
    }
    Server &server = Server::instance();
    const MutexLock guard(server_lock);
    const Client *client = server.find_client(static_cast<uint32_t>(value_of(conn_id)));
    if (!client) {
        return fail(EBADF);
    }
    if (!client->credentials_known) {
        return fail(EACCES);
    }
    *credentials = {};
    credentials->pid = client->pid;
    credentials->uid = client->uid;
    credentials->gid = client->gid;
    const int room = max_groups < IPC_CREDENTIAL_GROUPS ? max_groups : IPC_CREDENTIAL_GROUPS;
    for (uint32_t group : client->groups) {
        if (credentials->group_count >= room) {
            break;
        }
        credentials->groups[credentials->group_count++] = group;
    }
    return 0;
}

namespace vantro::platform {

bool client_in_group(int conn_id, uint32_t group, bool &is_member) {
    if (kind_of(conn_id) != NumberKind::client_id) {
        return false;
    }
    Server &server = Server::instance();
    const MutexLock guard(server_lock);
    const Client *client = server.find_client(static_cast<uint32_t>(value_of(conn_id)));
    if (!client || !client->credentials_known) {
        return false;
    }
    is_member =
        std::find(client->groups.begin(), client->groups.end(), group) != client->groups.end();
    return true;
}

int client_attachment(int conn_id) {
    if (kind_of(conn_id) != NumberKind::client_id) {
        return 0;
    }
    Server &server = Server::instance();
    const MutexLock guard(server_lock);
    const Client *client = server.find_client(static_cast<uint32_t>(value_of(conn_id)));
    return client ? client->attachment : 0;
}

} // namespace vantro::platform
