#include "service/requests/identity.h"

#include <algorithm>
#include <cerrno>

#include <unistd.h>

#include <vantro/platform/message.h>
#include <vantro/version.h>

namespace vantro::service::requests {

int identify(const Client &client, std::string_view capabilities, VantroIdentity &identity) {
    static_assert(VANTRO_IDENTITY_GROUPS == IPC_CREDENTIAL_GROUPS);
    static_assert(sizeof(VantroIdentity) == 340);
    ipc_credentials credentials = {};
    if (connect_client_info(client.connection, &credentials, IPC_CREDENTIAL_GROUPS) != 0) {
        return errno;
    }
    identity.service_pid = getpid();
    identity.pid = credentials.pid;
    identity.uid = credentials.uid;
    identity.gid = credentials.gid;
    identity.group_count = credentials.group_count;
    std::copy_n(credentials.groups, IPC_CREDENTIAL_GROUPS, identity.groups);
    static_assert(sizeof VANTRO_VERSION <= sizeof identity.version);
    std::copy_n(VANTRO_VERSION, sizeof VANTRO_VERSION, identity.version);
    if (capabilities.size() >= sizeof identity.capabilities) {
        const size_t end = capabilities.rfind(',', sizeof identity.capabilities - 1);
        capabilities = capabilities.substr(0, end == capabilities.npos ? 0 : end);
    }
    std::copy(capabilities.begin(), capabilities.end(), identity.capabilities);
    return 0;
}

} // namespace vantro::service::requests
