#include "service/requests/handlers.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <malloc.h>

namespace vantro::service::requests {

namespace {

Answers *the_answers;

const int32_t out_of_memory = ENOMEM;

// Room for answers that a thread keeps from one request to the next, so that answering costs no
// heap, and the host need not find it page by page. A listing of ten thousand nodes fits.
constexpr size_t room_kept = 1024 * 1024;

// After an answer of this size what making it took is given back to the host. That costs
// milliseconds, of which such an answer has taken many.
constexpr size_t trimmed_from = 1024 * 1024;

// A long listing leaves every thread that made one with its memory, for good.
void give_back(Bytes &answer) {
    if (answer.capacity() <= room_kept) {
        return;
    }
    const bool trim = answer.size() >= trimmed_from;
    Bytes().swap(answer);
    if (trim) {
        malloc_trim(0);
    }
}

} // namespace

void set_answers(Answers *answers) {
    the_answers = answers;
}

int32_t handle_request(MsgOsb *open, MsgContext *context, MsgService *) noexcept {
    thread_local Bytes answer;
    const bool client_waits = context->header->kind == MSG_KIND_PUTGET;
    const size_t size =
        std::min(context->header->send_length, static_cast<uint32_t>(context->payload_size));
    const void *data = &out_of_memory;
    size_t length = sizeof out_of_memory;
    try {
        the_answers->respond(open->index, context->payload, size, answer);
        data = answer.data();
        length = answer.size();
    } catch (const std::exception &) {
        // What is answered then was set above.
    }
    const int32_t sent = callout_reply(open, context, 0, data, static_cast<int32_t>(length));
    // An answer that could neither be sent nor held leaves the client waiting. Where it is the
    // client that has gone, nobody receives this.
    if (sent != 0 && client_waits) {
        ipc_error(context->receive_id, ENOMEM);
    }
    give_back(answer);
    return 0;
}

int32_t handle_open(MsgOsb *open, MsgContext *, MsgService *) noexcept {
    try {
        the_answers->opens().reset(open->index);
        return 0;
    } catch (const std::exception &) {
        return ENOMEM;
    }
}

int32_t handle_close(MsgOsb *open, MsgContext *, MsgService *) noexcept {
    the_answers->opens().forget(open->index);
    return 0;
}

} // namespace vantro::service::requests
