// The client half of the messaging layer, against a service in another process.
#include <algorithm>
#include <cstring>

#include "tests/faults/rows.h"

namespace vantro::faults {

namespace {

constexpr uint32_t long_answer = 100'000; // beyond what travels within a packet

// Answers with the payload, and as many more letters as the code says thousands.
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

// A long answer for a capacity of 5 bytes.
uint32_t hold(Scene &scene) {
    char reply[5];
    uint32_t length = 0;
    const int result =
        msgclient_putget(scene.client(), "hello", 5, reply, sizeof reply, &length, 100);
    scene.expect(result == MSG_STATUS_QUEUED && length == long_answer + 5, "nothing was held");
    return length;
}

bool open_one(Scene &scene) {
    MsgClient *client = scene.faulted([] { return msgclient_open("faults.echo", nullptr, 0); });
    scene.expect(client || errno != 0, "no errno");
    msgclient_close(client);
    return client != nullptr;
}

bool close_one(Scene &scene) {
    MsgClient *client = msgclient_open("faults.echo", nullptr, 0);
    return scene.faulted([&] { return msgclient_close(client); }) == 0;
}

template <typename Call>
bool answered(Scene &scene, Call call) {
    char reply[8] = "";
    uint32_t length = 0;
    const int result = scene.faulted([&] { return call(scene.client(), reply, &length); });
    scene.expect(result >= 0, "not a result");
    scene.expect(result != 0 || (length == 5 && std::memcmp(reply, "hello", 5) == 0),
                 "another answer");
    return result == 0;
}

int putgetv(MsgClient *client, char *reply, uint32_t *length) {
    iovec send[40]; // more than travel without the heap
    char letters[] = "hello";
    std::fill_n(send, 40, iovec{letters, 0});
    send[0] = {letters, 2};
    send[39] = {letters + 2, 3};
    const iovec parts[] = {{reply, 3}, {reply + 3, 5}};
    return msgclient_putgetv(client, send, 40, parts, 2, length, 0);
}

bool put_long(Scene &scene) {
    const std::string text(long_answer, 'y');
    std::string reply(long_answer, '\0');
    const int result = scene.faulted([&] {
        return msgclient_putget(scene.client(), text.data(), long_answer, reply.data(), long_answer,
                                nullptr, 0);
    });
    scene.expect(result >= 0 && (result != 0 || reply == text), "another answer");
    return result == 0;
}

template <typename Call>
bool fetched(Scene &scene, Call call) {
    const uint32_t length = hold(scene);
    std::string reply(length, '\0');
    uint32_t answer = 0;
    const int result = scene.faulted([&] { return call(reply.data(), length, &answer); });
    scene.expect(result >= 0, "not a result");
    scene.expect(result != 0 || (answer == length && reply.substr(0, 6) == "hellox"),
                 "another answer");
    return result == 0;
}

MsgClient *notified(Scene &scene) {
    MsgClient *client = scene.client();
    if (client->pulse_channel < 0) {
        scene.expect(msgclient_notify_pulse(client, 4) == 0, "cannot be notified");
    }
    return client;
}

// What was accepted under the tag is announced and there. One that was given up before may be
// announced too.
void expect_announcement(Scene &scene, MsgClient *client, uint32_t tag) {
    uint32_t announced = 0;
    while ((announced = msgclient_wait_pulse(client)) != tag && announced != 0) {
    }
    char reply[8] = "";
    scene.expect(announced == tag && msgclient_get(client, tag, reply, 8, nullptr, 0) == 0 &&
                     std::memcmp(reply, "hello", 5) == 0,
                 "accepted, and not announced or not there");
}

bool put(Scene &scene, int parts) {
    MsgClient *client = notified(scene);
    static uint32_t tag = 0;
    ++tag;
    char letters[] = "hello";
    const iovec vector[] = {{letters, 4}, {letters + 4, 1}};
    const int result = scene.faulted([&] {
        return parts ? msgclient_putv(client, tag, vector, parts, 0)
                     : msgclient_put(client, tag, letters, 5, 0);
    });
    scene.expect(result >= 0, "not a result");
    if (result == 0) {
        expect_announcement(scene, client, tag);
    }
    return result == 0;
}

bool notify(Scene &scene, bool pulse) {
    MsgClient *client = pulse ? scene.client() : notified(scene);
    const ipc_event event = {IPC_EVENT_PULSE, client->pulse_connection, 0, 10, 10};
    const int result = scene.faulted([&] {
        return pulse ? msgclient_notify_pulse(client, 4) : msgclient_notify(client, 4, &event);
    });
    scene.expect(result != -1 || (pulse && errno != 0 && client->pulse_channel == -1),
                 "a half channel");
    if (result == 0) {
        scene.expect(msgclient_put(client, 77, "hello", 5, 0) == 0, "no put is accepted");
        expect_announcement(scene, client, 77);
    }
    return result == 0;
}

bool wait_pulse(Scene &scene) {
    MsgClient *client = notified(scene);
    scene.expect(msgclient_put(client, 9, "hello", 5, 0) == 0, "no put is accepted");
    const uint32_t tag = scene.faulted([&] { return msgclient_wait_pulse(client); });
    scene.expect(tag == 9 || (tag == 0 && msgclient_wait_pulse(client) == 9), "the pulse is lost");
    char reply[8];
    scene.expect(msgclient_get(client, 9, reply, 8, nullptr, 0) == 0, "announced, and not there");
    return tag == 9;
}

} // namespace

int serve_echo() {
    MsgServer *server = msgserver_create(1 << 20, 16, MSGSERVER_FLAG_PATH);
    if (!server ||
        msgserver_add(server, "faults.echo", nullptr, nullptr, 1024, echo, nullptr, nullptr) < 0) {
        return 1;
    }
    return msgserver_thread_loop(server);
}

Rows client_rows() {
    const auto putget = [](MsgClient *client, char *reply, uint32_t *length) {
        return msgclient_putget(client, "hello", 5, reply, 8, length, 0);
    };
    const auto get = [](Scene &scene) {
        return fetched(scene, [&](char *reply, uint32_t length, uint32_t *answer) {
            return msgclient_get(scene.client(), 0, reply, length, answer, 0);
        });
    };
    const auto getv = [](Scene &scene) {
        return fetched(scene, [&](char *reply, uint32_t length, uint32_t *answer) {
            const iovec parts[] = {{reply, 10}, {reply + 10, length - 10}};
            return msgclient_getv(scene.client(), 0, parts, 2, answer, 0);
        });
    };
    return {{"msgclient_open", open_one},
            {"msgclient_close", close_one},
            {"msgclient_putget", [=](Scene &scene) { return answered(scene, putget); }},
            {"msgclient_putget long", put_long},
            {"msgclient_putgetv", [](Scene &scene) { return answered(scene, putgetv); }},
            {"msgclient_put", [](Scene &scene) { return put(scene, 0); }},
            {"msgclient_putv", [](Scene &scene) { return put(scene, 2); }},
            {"msgclient_get", get},
            {"msgclient_getv", getv},
            {"msgclient_notify", [](Scene &scene) { return notify(scene, false); }},
            {"msgclient_notify_pulse", [](Scene &scene) { return notify(scene, true); }},
            {"msgclient_wait_pulse", wait_pulse}};
}

} // namespace vantro::faults
