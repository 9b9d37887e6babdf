// The bare SOCK_SEQPACKET socket: a thread of the server for each connection.
#include <cstring>
#include <thread>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "bench/peers/peer.h"

namespace vantro::bench::peers {

namespace {

sockaddr_un address_in(const std::string &directory) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, (directory + "/socket").c_str(), sizeof address.sun_path - 1);
    return address;
}

int new_socket() {
    return socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
}

class SocketCaller : public Caller {
  public:
    explicit SocketCaller(const std::string &directory) : socket_(new_socket()) {
        const sockaddr_un address = address_in(directory);
        check(::connect(socket_, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0,
              "connect");
    }
    ~SocketCaller() override { close(socket_); }

    void exchange() override {
        const char request[request_bytes] = {};
        char answer[answer_bytes];
        check(send(socket_, request, sizeof request, MSG_NOSIGNAL) == sizeof request &&
                  recv(socket_, answer, sizeof answer, 0) == sizeof answer,
              "an exchange failed");
    }

  private:
    int socket_;
};

void answer_all(int connection) {
    char request[request_bytes];
    const char answer[answer_bytes] = {};
    while (recv(connection, request, sizeof request, 0) == sizeof request &&
           send(connection, answer, sizeof answer, MSG_NOSIGNAL) == sizeof answer) {
    }
    close(connection);
}

} // namespace

void serve(const std::string &directory) {
    const int listening = new_socket();
    const sockaddr_un address = address_in(directory);
    check(bind(listening, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 &&
              listen(listening, 16) == 0,
          "listen");
    ready();
    for (;;) {
        const int connection = accept(listening, nullptr, nullptr);
        check(connection >= 0, "accept");
        std::thread(answer_all, connection).detach();
    }
}

std::unique_ptr<Caller> connect(const std::string &directory) {
    return std::make_unique<SocketCaller>(directory);
}

} // namespace vantro::bench::peers
