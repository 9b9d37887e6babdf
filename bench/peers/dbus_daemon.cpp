// D-Bus as most services use it: through a daemon of its own, which passes every message on.
#include "bench/peers/sdbus.h"
#include "bench/peers/turns.h"

namespace vantro::bench::peers {

namespace {

std::string address_in(const std::string &directory) {
    return "unix:path=" + directory + "/dbus";
}

sd_bus *connection(const std::string &directory) {
    sd_bus *bus = nullptr;
    check(sd_bus_new(&bus) >= 0 && sd_bus_set_address(bus, address_in(directory).c_str()) >= 0 &&
              sd_bus_set_bus_client(bus, 1) >= 0 && sd_bus_start(bus) >= 0,
          "connect");
    return bus;
}

} // namespace

void serve(const std::string &directory) {
    Child daemon({"dbus-daemon", "--nofork", "--session", "--print-address",
                  "--address=" + address_in(directory)},
                 -1, Child::Errors::passed_on);
    daemon.wait_for_line("unix:");
    sd_bus *const bus = connection(directory);
    answer_on(bus);
    check(sd_bus_request_name(bus, bus_name, 0) >= 0, "the name cannot be had");
    ready();
    answer_all(bus);
}

std::unique_ptr<Caller> connect(const std::string &directory) {
    return std::make_unique<SdbusCaller>(connection(directory), bus_name);
}

} // namespace vantro::bench::peers
