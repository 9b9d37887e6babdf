// The server half of the messaging layer: a server whose calls fail while a client talks to it.
// Each row has a process of its own, since a server lives as long as its process.
#include <pthread.h>

#include <vantro/platform/message.h>

#include "tests/faults/rows.h"

namespace vantro::faults {

namespace {

// Which calls of the server fail.
enum class Where { nowhere, loop, receive, dispatch, reply, replyv, reply2, growmsg, release };

constexpr char service_name[] = "faults.served";
constexpr uint16_t later = 1; // code of a put that is answered by callout_reply2()

struct Serving {
    Scene &scene;
    Where where;
    std::string wrong = {};
    MsgServer *server = nullptr;
    int wake = -1;

    void expect(bool holds, const char *what) {
        if (!holds && wrong.empty()) {
            wrong = what;
        }
    }
};
Serving *serving;

// One call in the server's thread, which fails if this row wants that.
template <typename Call>
auto at(Where where, Call call) {
    const bool before = counting();
    counting() = where == serving->where;
    const auto result = call();
    counting() = before;
    return result;
}

int32_t respond(MsgOsb *open, MsgContext *context, MsgService *) {
    return at(Where::nowhere, [&]() -> int32_t { // the handler is not the library
        const TransportHeader header = *context->header;
        const int32_t receive_id = context->receive_id;
        at(Where::growmsg, [&] { return msgserver_growmsg(open->server, 2000 + header.code); });
        std::string payload(static_cast<const char *>(context->payload), header.send_length);
        const iovec part = {payload.data(), payload.size()};
        if (header.kind == MSG_KIND_PUT && header.code == later) {
            at(Where::reply2,
               [&] { return callout_reply2(open, receive_id, header.tag, 0, &part, 1); });
            return 0;
        }
        // A reference of the service's own, like that of a service that answers later.
        pthread_mutex_lock(&open->server->lock);
        open->inuse++;
        pthread_mutex_unlock(&open->server->lock);
        const auto length = static_cast<int32_t>(payload.size());
        const int32_t result =
            header.code & 2
                ? at(Where::replyv, [&] { return callout_replyv(open, context, 0, &part, 1); })
                : at(Where::reply,
                     [&] { return callout_reply(open, context, 0, payload.data(), length); });
        if (result == ENOMEM) {
            ipc_error(receive_id, ENOMEM);
        }
        at(Where::release,
           [&] { return _msgserver_lock_then_decr_inuse_and_release_osb_if_closed(open); });
        return 0;
    });
}

// A request whose answer fits or has to be fetched. @return whether all succeeded.
bool ask(MsgClient *client, uint16_t code, size_t size, uint32_t room) {
    const std::string text(size, code ? 'v' : 'w');
    std::string reply(size, '\0');
    uint32_t length = 0;
    int result = msgclient_putget(client, text.data(), static_cast<uint32_t>(size), reply.data(),
                                  room, &length, code);
    if (result == MSG_STATUS_QUEUED) {
        result = msgclient_get(client, 0, reply.data(), length, &length, 0);
    }
    serving->expect(result >= 0 && (result != 0 || reply == text), "another answer");
    return result == 0;
}

// An accepted put must be announced. @return whether it was accepted, and its answer was fetched.
bool put_one(MsgClient *client, uint16_t code, bool wait) {
    if (msgclient_notify_pulse(client, 4) != 0 ||
        msgclient_put(client, code + 1, "there", 5, code) != 0 ||
        (wait && msgclient_wait_pulse(client) != code + 1U)) {
        return false;
    }
    char reply[8] = "";
    const int result = msgclient_get(client, code + 1, reply, 8, nullptr, 0);
    serving->expect(result != 0 || std::string(reply) == "there", "another answer (put)");
    return result == 0;
}

// A client's requests, any of which may fail. @return whether all succeeded.
bool converse(bool wait) {
    MsgClient *client = msgclient_open(service_name, nullptr, 0);
    if (!client) {
        return serving->expect(errno != 0, "no errno"), false;
    }
    bool all = true;
    for (const uint16_t code : {0, 2}) {
        all = ask(client, code, 5, 5) && all;
        all = ask(client, code, 50'000, 10) && all;
        all = put_one(client, code / 2 ? later : 0, wait) && all;
    }
    msgclient_close(client);
    return all;
}

void *talk(void *) {
    const Plan &plan = serving->scene.plan();
    arm(control(), plan);
    const bool succeeded = converse(plan.kind == Kind::none);
    serving->scene.note_more();
    serving->expect(succeeded || control().failed > 0, "failed, and nothing had failed");
    disarm(control());
    serving->expect(converse(true), "the next client is not served");
    __atomic_store_n(&serving->server->stop, 1, __ATOMIC_SEQ_CST);
    pulse_send(serving->wake, 10, 0, 0);
    return nullptr;
}

std::string serve(Scene &scene, Where where) {
    Serving mine{scene, where};
    serving = &mine;
    mine.server = msgserver_create(1 << 20, 8, MSGSERVER_FLAG_PATH);
    if (!mine.server || msgserver_add(mine.server, service_name, nullptr, nullptr, 100, respond,
                                      nullptr, nullptr) != 0) {
        return "no server";
    }
    mine.wake = connect_attach(0, 0, mine.server->channel, 0, 0);
    pthread_t client;
    pthread_create(&client, nullptr, talk, nullptr);
    while (where != Where::loop && !__atomic_load_n(&mine.server->stop, __ATOMIC_SEQ_CST)) {
        if (at(Where::receive, [&] { return msgserver_receive(mine.server); }) != -1) {
            at(Where::dispatch, [&] { return msgserver_dispatch(mine.server); });
        }
    }
    at(Where::loop, [&] { return msgserver_thread_loop(mine.server); });
    pthread_join(client, nullptr);
    return mine.wrong.empty() ? "served" : mine.wrong;
}

// A call that makes something of a server's: if it fails it says why and leaves nothing, and can
// be called again. What the library keeps from its first server on is there already.
std::string make(Scene &scene, bool adds) {
    MsgServer *server = msgserver_create(100, 1, MSGSERVER_FLAG_PATH);
    msgserver_add(server, "faults.first", nullptr, nullptr, 100, respond, nullptr, nullptr);
    const auto call = [&] {
        return adds ? msgserver_add(server, service_name, nullptr, "perms=600", 100, respond,
                                    nullptr, nullptr) >= 0
                    : msgserver_create(100, 1, MSGSERVER_FLAG_PATH) != nullptr;
    };
    const int64_t blocks = live_blocks();
    const long descriptors = open_descriptors();
    if (scene.faulted(call)) {
        return "served";
    }
    const bool says_why = errno != 0;
    const bool leaves = live_blocks() != blocks || open_descriptors() != descriptors;
    return !says_why ? "no errno" : leaves ? "leaves something" : call() ? "failed" : "fails again";
}

Row row(const char *name, Where where, Way way = Way::serves) {
    return {name, [where](Scene &scene) { return serve(scene, where); }, way};
}

int32_t repeat(MsgOsb *open, MsgContext *context, MsgService *) {
    return callout_reply(open, context, 0, context->payload, 4);
}

void *loop(void *server) {
    counting() = true;
    msgserver_thread_loop(static_cast<MsgServer *>(server));
    return nullptr;
}

} // namespace

int64_t allocations_of_small_exchanges(int count) {
    const std::string name = count ? "faults.many" : "faults.none";
    MsgServer *server = msgserver_create(1024, 16, MSGSERVER_FLAG_PATH);
    pthread_t thread;
    msgserver_add(server, name.c_str(), nullptr, nullptr, 1024, repeat, nullptr, nullptr);
    pthread_create(&thread, nullptr, loop, server);
    MsgClient *client = msgclient_open(name.c_str(), nullptr, 0);
    int64_t failed = 0, reply = 0;
    const auto exchange = [&] {
        failed += msgclient_putget(client, "abcd", 4, &reply, 4, nullptr, 0) != 0;
    };
    exchange(); // creates what each thread creates once
    arm(control(), {Kind::allocation, INT64_MAX});
    counting() = true;
    for (int i = 0; i < count; ++i) {
        exchange();
    }
    msgclient_close(msgclient_open(name.c_str(), nullptr, 0)); // an open does allocate
    return failed ? -1 : control().seen.load();
}

Rows server_rows() {
    return {{"msgserver_create", [](Scene &scene) { return make(scene, false); }, Way::serves},
            {"msgserver_add", [](Scene &scene) { return make(scene, true); }, Way::serves},
            row("msgserver_thread_loop", Where::loop, Way::serves_first),
            row("msgserver_receive", Where::receive, Way::serves_first),
            row("msgserver_dispatch", Where::dispatch),
            row("msgserver_growmsg", Where::growmsg),
            row("callout_reply", Where::reply),
            row("callout_replyv", Where::replyv),
            row("callout_reply2", Where::reply2),
            row("_msgserver_lock_then_decr_inuse_and_release_osb_if_closed", Where::release)};
}

} // namespace vantro::faults
