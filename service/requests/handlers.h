// Where the messaging layer hands its requests over.
#ifndef VANTRO_SERVICE_REQUESTS_HANDLERS_H
#define VANTRO_SERVICE_REQUESTS_HANDLERS_H

#include <vantro/messaging.h>

#include "service/requests/answers.h"

namespace vantro::service::requests {

// Handlers carry no pointer of the service's own, so a process answers by one Answers. It is set
// before the first thread receives, and outlives the last.
void set_answers(Answers *answers);

int32_t handle_request(MsgOsb *open, MsgContext *context, MsgService *service) noexcept;
int32_t handle_open(MsgOsb *open, MsgContext *context, MsgService *service) noexcept;
int32_t handle_close(MsgOsb *open, MsgContext *context, MsgService *service) noexcept;

} // namespace vantro::service::requests

#endif
