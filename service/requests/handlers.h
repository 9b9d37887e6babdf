// The handlers that the messaging layer calls for requests.
//
// A short request is answered by the thread that received it. A request that may take long waits
// for its client's turn; `places` of these run at the same time, and the service receives with one
// thread more, so that one thread is always free for short requests.
#ifndef VANTRO_SERVICE_REQUESTS_HANDLERS_H
#define VANTRO_SERVICE_REQUESTS_HANDLERS_H

#include <vantro/messaging.h>

#include "service/memory_return.h"
#include "service/requests/answers.h"
#include "service/requests/turns.h"
#include "service/requests/user_limits.h"

namespace vantro::service::requests {

// The data of the handlers.
struct Handling {
    Answers &answers;
    Turns &turns;
    UserLimits &limits;
    MemoryReturn &memory;
};

// Handlers get no pointer of the service, so a process has one Handling. It is set before the first
// thread receives, and outlives the last one.
void set_handling(Handling *handling);

// Drops the requests that wait for their turn. Any thread; also before set_handling().
void stop_waiting();

int32_t handle_request(MsgOsb *open, MsgContext *context, MsgService *service) noexcept;
int32_t handle_open(MsgOsb *open, MsgContext *context, MsgService *service) noexcept;
int32_t handle_close(MsgOsb *open, MsgContext *context, MsgService *service) noexcept;

} // namespace vantro::service::requests

#endif
