// D-Bus without a daemon: client and server are connected by a socket, and each connection has a
// thread of the server.
#include <cstring>
#include <thread>

#include <sys/socket.h>
#include <sys/un.h>

#include "bench/peers/sdbus.h"

namespace vantro::bench::peers {

namespace {

void answer_one(int connection) {
    sd_id128_t id;
    sd_bus *bus = nullptr;
    check(sd_id128_randomize(&id) >= 0 && sd_bus_new(&bus) >= 0 &&
              sd_bus_set_fd(bus, connection, connection) >= 0 &&
              sd_bus_set_server(bus, 1, id) >= 0 && sd_bus_set_anonymous(bus, 1) >= 0 &&
              sd_bus_start(bus) >= 0,
          "a connection cannot be served");
    answer_on(bus);
    answer_all(bus);
    sd_bus_flush_close_unref(bus);
}

} // namespace

void serve(const std::string &directory) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, (directory + "/sdbus").c_str(), sizeof address.sun_path - 1);
    const int listening = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    check(bind(listening, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 &&
              listen(listening, 16) == 0,
          "listen");
    ready();
    for (;;) {
        const int connection = accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
        check(connection >= 0, "accept");
        std::thread(answer_one, connection).detach();
    }
}

std::unique_ptr<Caller> connect(const std::string &directory) {
    sd_bus *bus = nullptr;
    check(sd_bus_new(&bus) >= 0 &&
              sd_bus_set_address(bus, ("unix:path=" + directory + "/sdbus").c_str()) >= 0 &&
              sd_bus_start(bus) >= 0,
          "connect");
    return std::make_unique<SdbusCaller>(bus, nullptr);
}

} // namespace vantro::bench::peers
