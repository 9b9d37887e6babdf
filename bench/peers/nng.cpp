// nng: request and reply sockets over ipc, with one socket for each client thread.
#include <nng/nng.h>
#include <nng/protocol/reqrep0/rep.h>
#include <nng/protocol/reqrep0/req.h>

#include "bench/peers/peer.h"

namespace vantro::bench::peers {

namespace {

std::string address_in(const std::string &directory) {
    return "ipc://" + directory + "/nng";
}

class NngCaller : public Caller {
  public:
    explicit NngCaller(const std::string &directory) {
        check(nng_req0_open(&socket_) == 0 &&
                  nng_dial(socket_, address_in(directory).c_str(), nullptr, 0) == 0,
              "dial");
    }
    ~NngCaller() override { nng_close(socket_); }

    void exchange() override {
        char request[request_bytes] = {};
        char answer[answer_bytes];
        size_t length = sizeof answer;
        check(nng_send(socket_, request, sizeof request, 0) == 0 &&
                  nng_recv(socket_, answer, &length, 0) == 0 && length == sizeof answer,
              "an exchange failed");
    }

  private:
    nng_socket socket_ = NNG_SOCKET_INITIALIZER;
};

} // namespace

void serve(const std::string &directory) {
    nng_socket socket = NNG_SOCKET_INITIALIZER;
    check(nng_rep0_open(&socket) == 0 &&
              nng_listen(socket, address_in(directory).c_str(), nullptr, 0) == 0,
          "listen");
    ready();
    for (;;) {
        char request[request_bytes];
        char answer[answer_bytes] = {};
        size_t length = sizeof request;
        check(nng_recv(socket, request, &length, 0) == 0 &&
                  nng_send(socket, answer, sizeof answer, 0) == 0,
              "an answer failed");
    }
}

std::unique_ptr<Caller> connect(const std::string &directory) {
    return std::make_unique<NngCaller>(directory);
}

} // namespace vantro::bench::peers
