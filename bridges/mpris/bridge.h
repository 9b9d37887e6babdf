// Keeps every wanted player on the bus while the service has it, also across restarts of the
// service.
#ifndef VANTRO_BRIDGES_MPRIS_BRIDGE_H
#define VANTRO_BRIDGES_MPRIS_BRIDGE_H

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <vantro/vantro.hpp>

#include "bridges/mpris/bus/bus_player.h"

namespace vantro::mpris {

class Bridge {
  public:
    // @param players names; empty for all that the service has.
    explicit Bridge(std::vector<std::string> players) : wanted_(std::move(players)) {}
    Bridge(const Bridge &) = delete;
    Bridge &operator=(const Bridge &) = delete;

    // Runs until SIGTERM or SIGINT. @return the exit code; errors are printed on standard error.
    int run();

  private:
    struct Unreference {
        void operator()(sd_event *loop) const { sd_event_unref(loop); }
        void operator()(sd_event_source *source) const { sd_event_source_disable_unref(source); }
        void operator()(sd_bus *bus) const { sd_bus_flush_close_unref(bus); }
    };
    using Source = std::unique_ptr<sd_event_source, Unreference>;

    // A player on the bus. The source is destroyed first: its descriptor belongs to the player.
    struct Shown {
        Bridge *bridge = nullptr;
        std::unique_ptr<BusPlayer> player;
        Source events;
    };

    int start();
    void attempt();
    // @return success, or the reason for which the player is not on the bus.
    Result<void> show(const std::string &name);
    void lose(const std::string &name, const Failure &why);
    void attempt_in(std::chrono::milliseconds delay);
    void complain(const std::string &about, const std::string &why);
    void fail(const std::string &why);

    static int on_events(sd_event_source *source, int descriptor, uint32_t events, void *shown);
    static int on_exit(sd_event_source *source, void *bridge);
    static int on_timer(sd_event_source *source, uint64_t time, void *bridge);

    std::vector<std::string> wanted_;
    std::unique_ptr<sd_event, Unreference> loop_;
    // Held so that the end of the bus is noticed while no player is there.
    std::unique_ptr<sd_bus, Unreference> bus_;
    Source timer_;
    Source at_exit_;
    std::map<std::string, Shown> shown_;
    std::map<std::string, std::string> complaints_; // The last complaint about each player.
    std::chrono::milliseconds delay_{0};
    bool failed_ = false;
};

} // namespace vantro::mpris

#endif
