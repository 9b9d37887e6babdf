// Our own messaging, as vantrod serves it: threads that take requests, and hand-over.
#include <cstdint>
#include <thread>
#include <vector>

#include <vantro/messaging.h>
#include <vantro/platform/message.h>

#include "bench/peers/peer.h"

namespace vantro::bench::peers {

namespace {

constexpr const char *service_name = "compare";
constexpr int server_threads = 4;

int32_t answer(MsgOsb *open, MsgContext *context, MsgService *) {
    const char bytes[answer_bytes] = {};
    return callout_reply(open, context, 0, bytes, sizeof bytes);
}

class OurCaller : public Caller {
  public:
    void exchange() override {
        // One connection serves all threads.
        static MsgClient *const client = msgclient_open(service_name, nullptr, 0);
        check(client, "no service");
        const char request[request_bytes] = {};
        char reply[answer_bytes];
        uint32_t length = 0;
        check(msgclient_putget(client, request, sizeof request, reply, sizeof reply, &length, 0) ==
                      0 &&
                  length == sizeof reply,
              "an exchange failed");
    }
};

} // namespace

void serve(const std::string &) {
    MsgServer *server = msgserver_create(1024, 16, MSGSERVER_FLAG_PATH);
    check(server && channel_hand_over(server->channel) == 0 &&
              msgserver_add(server, service_name, nullptr, nullptr, 1024, answer, nullptr,
                            nullptr) >= 0,
          "the service cannot be made");
    ready();
    std::vector<std::jthread> others;
    for (int i = 1; i < server_threads; ++i) {
        others.emplace_back([server] { msgserver_thread_loop(server); });
    }
    msgserver_thread_loop(server);
}

std::unique_ptr<Caller> connect(const std::string &) {
    return std::make_unique<OurCaller>();
}

} // namespace vantro::bench::peers
