#include "service/requests/handlers.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <exception>
#include <memory>
#include <optional>

#include "service/error.h"
#include "service/requests/progress.h"

namespace vantro::service::requests {

namespace {

std::atomic<Handling *> the_handling;

Handling &handling() {
    return *the_handling.load(std::memory_order_relaxed);
}

const int32_t over_limit = EAGAIN;

// Room for answers that a thread keeps from one request to the next, so that an answer needs no
// heap allocation, and the kernel need not supply the pages again. A listing of ten thousand nodes
// fits.
constexpr size_t room_kept = 1024 * 1024;

// Frees a large buffer: otherwise every thread that made a long listing would keep the memory
// forever.
void give_back(Bytes &answer) {
    if (answer.capacity() > room_kept) {
        Bytes().swap(answer);
        handling().memory.note();
    }
}

void send(MsgOsb *open, MsgContext &context, const void *data, size_t length) {
    const bool client_waits = context.header->kind == MSG_KIND_PUTGET;
    const int32_t sent = callout_reply(open, &context, 0, data, static_cast<int32_t>(length));
    // If the answer could be neither sent nor held, the client still waits. If the client has gone,
    // this has no effect.
    if (sent != 0 && client_waits) {
        ipc_error(context.receive_id, ENOMEM);
    }
}

void carry_out(MsgOsb *open, MsgContext &context, size_t size) noexcept {
    thread_local Bytes answer;
    int32_t refusal = 0;
    publishing::HeldBell bell; // rings after the answer was sent
    try {
        handling().answers.respond(open->index, context.payload, size, answer, bell);
    } catch (const std::exception &thrown) {
        refusal = result_word(error_of(thrown));
    }
    if (refusal != 0) {
        send(open, context, &refusal, sizeof refusal);
    } else {
        send(open, context, answer.data(), answer.size());
    }
    give_back(answer);
}

// A request that waits for its turn, with its own copy of the received bytes.
class WaitingRequest {
  public:
    WaitingRequest(MsgOsb *open, const MsgContext &context, size_t size, const Client &client)
        : client_(client), open_(open), context_(context), header_(*context.header),
          payload_(static_cast<const unsigned char *>(context.payload),
                   static_cast<const unsigned char *>(context.payload) + size) {
        context_.header = &header_;
        context_.payload = payload_.data();
    }
    ~WaitingRequest() { handling().limits.give_waiting(client_, payload_.size()); }
    WaitingRequest(const WaitingRequest &) = delete;
    WaitingRequest &operator=(const WaitingRequest &) = delete;

    void carry_out() noexcept {
        Step::next();
        // If the client has given up the request, only this answer is made, which drops the
        // reference.
        if (header_.kind == MSG_KIND_PUTGET && ipc_waiting(context_.receive_id) == 0) {
            callout_reply(open_, &context_, 0, nullptr, 0);
            return;
        }
        requests::carry_out(open_, context_, payload_.size());
    }

  private:
    const Client client_;
    MsgOsb *const open_;
    MsgContext context_;
    TransportHeader header_;
    Bytes payload_;
};

// If there is no memory for the request, the counted amounts are released.
std::shared_ptr<WaitingRequest> wait(MsgOsb *open, const MsgContext &context, size_t size,
                                     const Client &client) {
    try {
        return std::make_shared<WaitingRequest>(open, context, size, client);
    } catch (...) {
        handling().limits.give_waiting(client, size);
        throw;
    }
}

// Throws std::bad_alloc; then nothing was done.
void carry_out_in_turn(MsgOsb *open, MsgContext &context, size_t size) {
    Turns &turns = handling().turns;
    const int32_t client = context.info.conn_id;
    if (!handling().answers.may_take_long(open->index, context.payload, size)) {
        carry_out(open, context, size);
        return;
    }
    if (turns.begin(client)) {
        carry_out(open, context, size);
        turns.finish();
        return;
    }
    const Client owner = handling().answers.opens().client(open->index);
    if (!handling().limits.take_waiting(owner, size)) {
        send(open, context, &over_limit, sizeof over_limit);
        return;
    }
    const auto waiting = wait(open, context, size, owner);
    if (!turns.leave(client, [waiting] { waiting->carry_out(); })) {
        waiting->carry_out();
        turns.finish();
    }
}

} // namespace

void set_handling(Handling *handling) {
    the_handling = handling;
}

void stop_waiting() {
    if (Handling *const handling = the_handling) {
        handling->turns.stop();
    }
}

int32_t handle_request(MsgOsb *open, MsgContext *context, MsgService *) noexcept {
    const Step step;
    const size_t size =
        std::min(context->header->send_length, static_cast<uint32_t>(context->payload_size));
    try {
        carry_out_in_turn(open, *context, size);
    } catch (const std::exception &thrown) {
        const int32_t refusal = result_word(error_of(thrown));
        send(open, *context, &refusal, sizeof refusal);
    }
    return 0;
}

int32_t handle_open(MsgOsb *open, MsgContext *context, MsgService *) noexcept {
    const Step step;
    ipc_credentials credentials = {};
    if (connect_client_info(context->info.conn_id, &credentials, 0) != 0) {
        return EACCES;
    }
    if (descriptors_are_short(credentials.uid)) {
        return EMFILE;
    }
    const Client client{0, context->info.conn_id, credentials.pid, credentials.uid};
    bool counted = false;
    try {
        counted = handling().limits.take_open(client);
        if (!counted) {
            return EAGAIN;
        }
        handling().answers.opens().reset(open->index, client);
        return 0;
    } catch (const std::exception &thrown) {
        if (counted) {
            handling().limits.give_open(client);
        }
        return result_word(error_of(thrown));
    }
}

int32_t handle_close(MsgOsb *open, MsgContext *, MsgService *) noexcept {
    const Step step;
    if (const std::optional<Client> client = handling().answers.close(open->index)) {
        handling().limits.give_open(*client);
        handling().turns.forget(client->connection);
        handling().memory.note(); // the answers held for the client are freed with it
    }
    return 0;
}

} // namespace vantro::service::requests
