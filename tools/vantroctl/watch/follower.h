// Follows a player through its events, also from one run of the service to the next.
#ifndef VANTRO_TOOLS_VANTROCTL_WATCH_FOLLOWER_H
#define VANTRO_TOOLS_VANTROCTL_WATCH_FOLLOWER_H

#include <memory>
#include <string>
#include <vector>

#include "tools/vantroctl/model/player_event.h"
#include "tools/vantroctl/service/client.h"

namespace vantro::ctl {

// Gives the full picture first, then each event. When the service ends it gives `gone`; whoever
// uses it then says when to look for the service. `waiting` says that something other than the
// service's absence is in the way. When the player is followed again, it gives `back` and the full
// picture.
class Follower {
  public:
    // Connects and gets the full picture. @throws Failure if there is nothing to follow.
    explicit Follower(const ClientOptions &options);

    // Whether the service is gone.
    bool gone() const { return !client_; }

    // Readable while take() may have something; -1 while the service is gone, and where the user
    // has no inotify instance left: then take() is to be called from time to time.
    int descriptor() const { return descriptor_; }

    // The events since the last call, oldest first, up to a limit: if the descriptor is still
    // readable there are more. Does not wait. @throws Failure.
    std::vector<PlayerEvent> take();

    // Looks for a service that is gone, and waits a second at most for its answer. @param events
    // receives the resulting events. @return whether there is no service.
    bool look_for_service(std::vector<PlayerEvent> &events);

  private:
    // What look() found.
    enum class Look { event, nothing, gone };

    void begin(double timeout_s);
    void leave();
    void need_descriptor();
    Look look(PlayerEvent &event);
    [[noreturn]] void fail(int error) const;
    PlayerEvent event_of(PlayerEvent::Kind kind) const;

    ClientOptions options_;
    std::unique_ptr<Client> client_;
    int descriptor_ = -1;
    std::vector<PlayerEvent> picture_; // The full picture, until it is taken.
    std::string last_reason_;          // Why the last look failed.
    std::string told_reason_;          // The last one reported.
};

} // namespace vantro::ctl

#endif
