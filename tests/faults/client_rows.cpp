// The client half of the messaging layer, against a service in another process.
#include <cstdio>
#include <cstring>

#include "tests/faults/rows.h"

namespace vantro::faults {

namespace {

constexpr uint32_t long_answer = 100'000; // beyond what travels within a packet

// Answers with the payload and a thousand times `code` more letters.
int32_t echo(MsgOsb *open, MsgContext *context, MsgService *) {
    std::string answer(static_cast<const char *>(context->payload), context->header->send_length);
    answer.append(context->header->code * size_t{1000}, 'x');
    const int32_t receive_id = context->receive_id;
    if (callout_reply(open, context, 0, answer.data(), static_cast<int32_t>(answer.size())) ==
        ENOMEM) {
        ipc_error(receive_id, ENOMEM);
    }
    return 0;
}

// A result as text; all errors give the same text.
std::string told(int result, const std::string &answer) {
    return result == 0 ? answer : result > 0 ? "failed" : "not a result";
}

// An open says why it failed if the process is short of something, or was interrupted.
std::string open_one(Scene &scene) {
    MsgClient *client = scene.faulted([] { return msgclient_open("faults.echo", nullptr, 0); });
    const int error = errno, injected = control().error;
    msgclient_close(client);
    const bool says_why =
        injected == EINTR || injected == EMFILE || scene.plan().kind == Kind::allocation;
    return client ? "open" : error == injected || !says_why ? "failed" : "hides the error";
}

std::string close_one(Scene &scene) {
    MsgClient *client = msgclient_open("faults.echo", nullptr, 0);
    return told(scene.faulted([&] { return msgclient_close(client); }), "closed");
}

// A request whose answer fits; the vectors are longer than those that need no heap.
std::string ask(Scene &scene, bool by_vectors, uint32_t length) {
    MsgClient *client = scene.client();
    std::string text(length, 'y'), reply(length, '\0');
    std::vector<iovec> send(40, {text.data(), 0});
    send[0].iov_len = 2;
    send[39] = {text.data() + 2, length - 2};
    const iovec parts[] = {{reply.data(), 3}, {reply.data() + 3, length - 3}};
    const int result = scene.faulted([&] {
        return by_vectors ? msgclient_putgetv(client, send.data(), 40, parts, 2, nullptr, 0)
                          : msgclient_putget(client, text.data(), length, reply.data(), length,
                                             nullptr, 0);
    });
    return told(result, reply);
}

// Fetches a long answer to a request with room for 5 bytes.
std::string fetch(Scene &scene, bool by_vectors) {
    MsgClient *client = scene.client();
    char first[5];
    uint32_t length = 0, answer = 0;
    if (msgclient_putget(client, "hello", 5, first, 5, &length, 100) != MSG_STATUS_QUEUED) {
        return "nothing was held";
    }
    std::string reply(long_answer + 5, '\0');
    const iovec parts[] = {{reply.data(), 10}, {reply.data() + 10, length - 10}};
    const int result = scene.faulted([&] {
        return by_vectors ? msgclient_getv(client, 0, parts, 2, &answer, 0)
                          : msgclient_get(client, 0, reply.data(), length, &answer, 0);
    });
    return told(result, reply + std::to_string(answer));
}

MsgClient *notified(Scene &scene) {
    MsgClient *client = scene.client();
    if (client->pulse_channel < 0) {
        msgclient_notify_pulse(client, 4);
    }
    return client;
}

// The answer to an accepted put is announced and can be fetched. One that was given up before may
// be announced too.
std::string announced(MsgClient *client, uint32_t tag) {
    uint32_t announced = 0;
    while ((announced = msgclient_wait_pulse(client)) != tag && announced != 0) {
    }
    char reply[8] = "";
    return announced == tag && msgclient_get(client, tag, reply, 8, nullptr, 0) == 0
               ? reply
               : "accepted, and not announced or not there";
}

std::string put(Scene &scene, bool by_vectors) {
    MsgClient *client = notified(scene);
    static uint32_t tag = 0;
    ++tag;
    char letters[] = "hello";
    const iovec vector[] = {{letters, 4}, {letters + 4, 1}};
    const int result = scene.faulted([&] {
        return by_vectors ? msgclient_putv(client, tag, vector, 2, 0)
                          : msgclient_put(client, tag, letters, 5, 0);
    });
    return told(result, result == 0 ? announced(client, tag) : "");
}

std::string notify(Scene &scene, bool by_pulse) {
    MsgClient *client = by_pulse ? scene.client() : notified(scene);
    const ipc_event event = {IPC_EVENT_PULSE, client->pulse_connection, 0, 10, 10};
    const int result = scene.faulted([&] {
        return by_pulse ? msgclient_notify_pulse(client, 4) : msgclient_notify(client, 4, &event);
    });
    if (result == -1) {
        return by_pulse && errno != 0 && client->pulse_channel == -1 ? "failed" : "half a channel";
    }
    return told(result, result == 0 && msgclient_put(client, 77, "hello", 5, 0) == 0
                            ? announced(client, 77)
                            : "no put is accepted");
}

std::string wait_pulse(Scene &scene) {
    MsgClient *client = notified(scene);
    if (msgclient_put(client, 9, "hello", 5, 0) != 0) {
        return "no put is accepted";
    }
    const uint32_t tag = scene.faulted([&] { return msgclient_wait_pulse(client); });
    if (tag == 0 && msgclient_wait_pulse(client) != 9) {
        return "the pulse is lost";
    }
    char reply[8] = "";
    msgclient_get(client, 9, reply, 8, nullptr, 0);
    return tag == 0 && std::strcmp(reply, "hello") == 0 ? "failed" : std::to_string(tag) + reply;
}

template <typename... Arguments>
Row row(const char *name, std::string (*run)(Scene &, Arguments...), Arguments... arguments) {
    return {name, [=](Scene &scene) { return run(scene, arguments...); }};
}

} // namespace

int serve_echo() {
    MsgServer *server = msgserver_create(1 << 20, 16, MSGSERVER_FLAG_PATH);
    if (!server ||
        msgserver_add(server, "faults.echo", nullptr, nullptr, 1024, echo, nullptr, nullptr) < 0) {
        return 1;
    }
    std::puts("ready");
    std::fflush(stdout);
    return msgserver_thread_loop(server);
}

Rows client_rows() {
    return {row("msgclient_open", open_one),
            row("msgclient_close", close_one),
            row("msgclient_putget", ask, false, 5U),
            row("msgclient_putget long", ask, false, long_answer),
            row("msgclient_putgetv", ask, true, 5U),
            row("msgclient_put", put, false),
            row("msgclient_putv", put, true),
            row("msgclient_get", fetch, false),
            row("msgclient_getv", fetch, true),
            row("msgclient_notify", notify, false),
            row("msgclient_notify_pulse", notify, true),
            row("msgclient_wait_pulse", wait_pulse)};
}

} // namespace vantro::faults
