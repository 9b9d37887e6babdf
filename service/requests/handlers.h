// Where the messaging layer hands its requests over.
//
// A request that takes moments is answered by the thread that received it. One that may take long
// waits for its client's turn; `places` of those are carried out at once, and the service receives
// with one thread more than that, so that there is always one for the others.
#ifndef VANTRO_SERVICE_REQUESTS_HANDLERS_H
#define VANTRO_SERVICE_REQUESTS_HANDLERS_H

#include <vantro/messaging.h>

#include "service/memory_return.h"
#include "service/requests/answers.h"
#include "service/requests/turns.h"
#include "service/requests/user_limits.h"

namespace vantro::service::requests {

// What the handlers work with.
struct Handling {
    Answers &answers;
    Turns &turns;
    UserLimits &limits;
    MemoryReturn &memory;
};

// Handlers carry no pointer of the service's own, so a process has one Handling. It is set before
// the first thread receives, and outlives the last.
void set_handling(Handling *handling);

// Drops the requests that wait for their turn. Any thread; also before there is a Handling.
void stop_waiting();

int32_t handle_request(MsgOsb *open, MsgContext *context, MsgService *service) noexcept;
int32_t handle_open(MsgOsb *open, MsgContext *context, MsgService *service) noexcept;
int32_t handle_close(MsgOsb *open, MsgContext *context, MsgService *service) noexcept;

} // namespace vantro::service::requests

#endif
