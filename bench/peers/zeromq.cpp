// ZeroMQ: request and reply sockets over ipc, with one context for each process and one socket for
// each client thread.
#include <zmq.h>

#include "bench/peers/peer.h"

namespace vantro::bench::peers {

namespace {

std::string address_in(const std::string &directory) {
    return "ipc://" + directory + "/zeromq";
}

class ZeroCaller : public Caller {
  public:
    explicit ZeroCaller(const std::string &directory) {
        static void *const context = zmq_ctx_new();
        socket_ = zmq_socket(context, ZMQ_REQ);
        check(socket_ && zmq_connect(socket_, address_in(directory).c_str()) == 0, "connect");
    }
    ~ZeroCaller() override { zmq_close(socket_); }

    void exchange() override {
        const char request[request_bytes] = {};
        char answer[answer_bytes];
        check(zmq_send(socket_, request, sizeof request, 0) == sizeof request &&
                  zmq_recv(socket_, answer, sizeof answer, 0) == sizeof answer,
              "an exchange failed");
    }

  private:
    void *socket_;
};

} // namespace

void serve(const std::string &directory) {
    void *const socket = zmq_socket(zmq_ctx_new(), ZMQ_REP);
    check(socket && zmq_bind(socket, address_in(directory).c_str()) == 0, "bind");
    ready();
    for (;;) {
        char request[request_bytes];
        const char answer[answer_bytes] = {};
        check(zmq_recv(socket, request, sizeof request, 0) == sizeof request &&
                  zmq_send(socket, answer, sizeof answer, 0) == sizeof answer,
              "an answer failed");
    }
}

std::unique_ptr<Caller> connect(const std::string &directory) {
    return std::make_unique<ZeroCaller>(directory);
}

} // namespace vantro::bench::peers
