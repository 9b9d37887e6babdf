#include "bench/peers/sdbus.h"

namespace vantro::bench::peers {

namespace {

constexpr const char *object_path = "/org/example/Compare";
constexpr const char *interface_name = "org.example.Compare";

int answer(sd_bus_message *request, void *, sd_bus_error *) {
    const void *payload = nullptr;
    size_t length = 0;
    check(sd_bus_message_read_array(request, 'y', &payload, &length) >= 0 &&
              length == request_bytes,
          "a request is malformed");
    sd_bus_message *reply = nullptr;
    const char bytes[answer_bytes] = {};
    check(sd_bus_message_new_method_return(request, &reply) >= 0 &&
              sd_bus_message_append_array(reply, 'y', bytes, sizeof bytes) >= 0 &&
              sd_bus_send(nullptr, reply, nullptr) >= 0,
          "an answer failed");
    sd_bus_message_unref(reply);
    return 1;
}

const sd_bus_vtable methods[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Call", "ay", "ay", answer, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

} // namespace

void answer_on(sd_bus *bus) {
    check(sd_bus_add_object_vtable(bus, nullptr, object_path, interface_name, methods, nullptr) >=
              0,
          "the object cannot be added");
}

void answer_all(sd_bus *bus) {
    for (;;) {
        const int done = sd_bus_process(bus, nullptr);
        if (done < 0 || (done == 0 && sd_bus_wait(bus, UINT64_MAX) < 0)) {
            return;
        }
    }
}

void SdbusCaller::exchange() {
    sd_bus_message *request = nullptr;
    sd_bus_message *reply = nullptr;
    const char bytes[request_bytes] = {};
    check(sd_bus_message_new_method_call(bus_, &request, destination_, object_path, interface_name,
                                         "Call") >= 0 &&
              sd_bus_message_append_array(request, 'y', bytes, sizeof bytes) >= 0 &&
              sd_bus_call(bus_, request, 0, nullptr, &reply) >= 0,
          "an exchange failed");
    const void *payload = nullptr;
    size_t length = 0;
    check(sd_bus_message_read_array(reply, 'y', &payload, &length) >= 0 && length == answer_bytes,
          "an answer is malformed");
    sd_bus_message_unref(request);
    sd_bus_message_unref(reply);
}

} // namespace vantro::bench::peers
