// The server half of the messaging layer: a server whose calls fail while a client talks to it.
// Each row has a process of its own, since a server lives as long as its process.
#include <pthread.h>

#include <cstring>

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
    MsgServer *server = nullptr;
    int wake = -1;
    int client_thread_ended = 0;
};
Serving *serving;

// One call in the server's thread, failing where this row has it fail.
template <typename Call>
auto at(Where where, Call call) {
    counting() = where == serving->where;
    const auto result = call();
    counting() = false;
    return result;
}

int32_t respond(MsgOsb *open, MsgContext *context, MsgService *) {
    const bool chosen = counting();
    counting() = false; // the handler is not the library
    const TransportHeader header = *context->header;
    const int32_t receive_id = context->receive_id;
    at(Where::growmsg, [&] { return msgserver_growmsg(open->server, 2000 + header.code); });
    const std::string payload(static_cast<const char *>(context->payload), header.send_length);
    iovec part = {const_cast<char *>(payload.data()), payload.size()};
    if (header.kind == MSG_KIND_PUT && header.code == later) {
        at(Where::reply2,
           [&] { return callout_reply2(open, receive_id, header.tag, 0, &part, 1); });
        counting() = chosen;
        return 0;
    }
    // A reference of the service's own, as one that answers later would have it.
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
    counting() = chosen;
    return 0;
}

// A request whose answer is longer than its capacity, and the fetch. @return whether both
// succeeded.
bool ask_long(MsgClient *client, uint16_t code) {
    const std::string text(50'000, code ? 'v' : 'w');
    std::string reply(text.size(), '\0');
    uint32_t length = 0;
    int result = msgclient_putget(client, text.data(), static_cast<uint32_t>(text.size()),
                                  reply.data(), 10, &length, code);
    if (result == MSG_STATUS_QUEUED) {
        result = msgclient_get(client, 0, reply.data(), length, &length, 0);
    }
    serving->scene.expect(result >= 0 && (result != 0 || reply == text), "another answer (long)");
    return result == 0;
}

// A put is announced where it is accepted. @return whether it was, and its answer could be had.
bool put_one(MsgClient *client, uint16_t code, bool wait) {
    if (msgclient_notify_pulse(client, 4) != 0 ||
        msgclient_put(client, code + 1, "there", 5, code) != 0 ||
        (wait && msgclient_wait_pulse(client) != code + 1U)) {
        return false;
    }
    char reply[8] = "";
    const int result = msgclient_get(client, code + 1, reply, 8, nullptr, 0);
    serving->scene.expect(result != 0 || std::memcmp(reply, "there", 5) == 0,
                          "another answer (put)");
    return result == 0;
}

// What a client does, with as many failures as there may be. @return whether all succeeded.
bool converse(bool wait) {
    MsgClient *client = msgclient_open(service_name, nullptr, 0);
    if (!client) {
        serving->scene.expect(errno != 0, "no errno");
        return false;
    }
    bool all = true;
    for (uint16_t code = 0; code < 4; code = static_cast<uint16_t>(code + 2)) {
        char reply[8] = "";
        const int result = msgclient_putget(client, "hello", 5, reply, 8, nullptr, code);
        serving->scene.expect(result >= 0 && (result != 0 || std::memcmp(reply, "hello", 5) == 0),
                              "another answer");
        const bool held = ask_long(client, code);
        all = all && result == 0 && held;
    }
    for (uint16_t code = 0; code <= later; ++code) {
        all = put_one(client, code, wait) && all;
    }
    msgclient_close(client);
    return all;
}

void *talk(void *) {
    const Plan &plan = serving->scene.plan();
    arm(control(), plan.kind, plan.nth, plan.variant, plan.times);
    const bool succeeded = converse(plan.kind == Kind::none);
    serving->scene.note_more();
    serving->scene.expect(succeeded || control().failed > 0, "failed, and nothing had failed");
    disarm(control());
    serving->scene.expect(converse(true), "the next client is not served");
    __atomic_store_n(&serving->client_thread_ended, 1, __ATOMIC_SEQ_CST);
    __atomic_store_n(&serving->server->stop, 1, __ATOMIC_SEQ_CST);
    pulse_send(serving->wake, 10, 0, 0);
    return nullptr;
}

bool serve(Scene &scene, Where where) {
    Serving mine{scene, where};
    serving = &mine;
    mine.server = msgserver_create(1 << 20, 8, MSGSERVER_FLAG_PATH);
    if (!mine.server || msgserver_add(mine.server, service_name, nullptr, nullptr, 100, respond,
                                      nullptr, nullptr) != 0) {
        scene.expect(false, "no server");
        return false;
    }
    mine.wake = connect_attach(0, 0, mine.server->channel, 0, 0);
    pthread_t client;
    scene.expect(pthread_create(&client, nullptr, talk, nullptr) == 0, "no client");
    while (where != Where::loop && !__atomic_load_n(&mine.server->stop, __ATOMIC_SEQ_CST)) {
        if (at(Where::receive, [&] { return msgserver_receive(mine.server); }) != -1) {
            at(Where::dispatch, [&] { return msgserver_dispatch(mine.server); });
        }
    }
    at(Where::loop, [&] { return msgserver_thread_loop(mine.server); });
    pthread_join(client, nullptr);
    return true;
}

// A call that makes something of a server's: where it fails it says why and leaves nothing, and can
// be called again.
template <typename Call>
bool make(Scene &scene, Call call) {
    const int64_t blocks = live_blocks();
    const long descriptors = open_descriptors();
    if (scene.faulted(call)) {
        return true;
    }
    scene.expect(errno != 0, "no errno");
    scene.expect(live_blocks() == blocks, "leaves memory behind");
    scene.expect(open_descriptors() == descriptors, "leaves descriptors behind");
    scene.expect(call(), "cannot be called again");
    return false;
}

// What the library keeps from its first server on is there already.
void make_another() {
    msgserver_create(100, 1, MSGSERVER_FLAG_PATH);
}

bool create(Scene &scene) {
    make_another();
    return make(scene, [] { return msgserver_create(100, 1, MSGSERVER_FLAG_PATH) != nullptr; });
}

bool add(Scene &scene) {
    MsgServer *server = msgserver_create(100, 1, MSGSERVER_FLAG_PATH);
    msgserver_add(server, "faults.first", nullptr, nullptr, 100, respond, nullptr, nullptr);
    return make(scene, [&] {
        return msgserver_add(server, service_name, nullptr, "perms=600", 100, respond, nullptr,
                             nullptr) >= 0;
    });
}

} // namespace

Rows server_rows() {
    Rows rows = {{"msgserver_create", create, Way::serves}, {"msgserver_add", add, Way::serves}};
    const std::pair<const char *, Where> served[] = {
        {"msgserver_thread_loop", Where::loop},
        {"msgserver_receive", Where::receive},
        {"msgserver_dispatch", Where::dispatch},
        {"msgserver_growmsg", Where::growmsg},
        {"callout_reply", Where::reply},
        {"callout_replyv", Where::replyv},
        {"callout_reply2", Where::reply2},
        {"_msgserver_lock_then_decr_inuse_and_release_osb_if_closed", Where::release}};
    for (const auto &[name, where] : served) {
        const bool first = where == Where::loop || where == Where::receive;
        rows.push_back({name, [where = where](Scene &scene) { return serve(scene, where); },
                        first ? Way::serves_first : Way::serves});
    }
    return rows;
}

} // namespace vantro::faults
