#include "tools/vantroctl/service/service_request.h"

#include <memory>

#include <vantro/messaging.h>
#include <vantro/protocol.h>

namespace vantro::ctl {
namespace {

struct ClientClose {
    void operator()(MsgClient *client) const { msgclient_close(client); }
};

int32_t result_of(MsgClient &client, const ServiceRequest &request) {
    const std::string bytes = request.bytes();
    int32_t result = no_reason;
    const int status = msgclient_putget(&client, bytes.data(), static_cast<uint32_t>(bytes.size()),
                                        &result, sizeof result, nullptr, 0);
    // Only an answer longer than a result word is held, and that is no refusal.
    return status == 0 ? result : status == MSG_STATUS_QUEUED ? 0 : no_reason;
}

} // namespace

ServiceRequest &ServiceRequest::text(std::string_view value) {
    number(static_cast<int32_t>(value.size()));
    parameters_ += value;
    return *this;
}

bool ServiceRequest::is_query() const {
    return command_ >= VANTRO_COMMAND_GET_MEDIA_SOURCES &&
           command_ <= VANTRO_COMMAND_GET_EXTENDED_METADATA;
}

std::string ServiceRequest::bytes() const {
    RequestHeader header = {};
    header.command = command_;
    header.payload_length = static_cast<uint32_t>(parameters_.size());
    return std::string(reinterpret_cast<const char *>(&header), sizeof header) + parameters_;
}

int32_t ask_reason(const std::string &player, const ServiceRequest &request) {
    const std::unique_ptr<MsgClient, ClientClose> client(
        msgclient_open(VANTRO_SERVICE_NAME, nullptr, 0));
    if (!client) {
        return no_reason;
    }
    const int32_t result = result_of(*client, ServiceRequest(VANTRO_COMMAND_OPEN).text(player));
    return result != 0 || request.command() == VANTRO_COMMAND_OPEN ? result
                                                                   : result_of(*client, request);
}

} // namespace vantro::ctl
