// Shared by the peers on D-Bus: one method, and its call, by sd-bus.
#ifndef VANTRO_BENCH_PEERS_SDBUS_H
#define VANTRO_BENCH_PEERS_SDBUS_H

#include <systemd/sd-bus.h>

#include "bench/peers/peer.h"

namespace vantro::bench::peers {

inline constexpr const char *bus_name = "org.example.Compare";

// Answers the method on a connection that was started.
void answer_on(sd_bus *bus);

// Handles messages until the connection ends.
void answer_all(sd_bus *bus);

class SdbusCaller : public Caller {
  public:
    // @param bus started; owned from now on.
    // @param destination bus_name, or null where the other side is the server itself.
    SdbusCaller(sd_bus *bus, const char *destination) : bus_(bus), destination_(destination) {}
    ~SdbusCaller() override { sd_bus_flush_close_unref(bus_); }

    void exchange() override;

  private:
    sd_bus *bus_;
    const char *destination_;
};

} // namespace vantro::bench::peers

#endif
