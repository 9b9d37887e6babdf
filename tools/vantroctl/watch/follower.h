// Follows a player through its events, also across restarts of the service.
#ifndef VANTRO_TOOLS_VANTROCTL_WATCH_FOLLOWER_H
#define VANTRO_TOOLS_VANTROCTL_WATCH_FOLLOWER_H

#include <memory>
#include <string>
#include <vector>

#include "tools/vantroctl/model/player_event.h"
#include "tools/vantroctl/service/client.h"

namespace vantro::ctl {

// Returns the complete state first, then each event. When the service ends, it returns `gone`; from
// then on the caller decides when to look for the service. `waiting` means that a reason other than
// the service's absence prevents following. When the player can be followed again, it returns
// `back` and the complete state.
class Follower {
  public:
    // Connects and reads the complete state. @throws Failure if there is no player to follow.
    explicit Follower(const ClientOptions &options);

    // Whether the service is gone.
    bool gone() const { return !client_; }

    // Readable while take() may return events; -1 while the service is gone, and if the user has no
    // inotify instance left: then call take() from time to time.
    int descriptor() const { return descriptor_; }

    // The events since the last call, oldest first, up to a limit: if the descriptor is still
    // readable, there are more. Does not wait. @throws Failure.
    std::vector<PlayerEvent> take();

    // Looks for the service after it was gone, and waits at most a second for its answer. @param
    // events receives the resulting events. @return whether there is no service.
    bool look_for_service(std::vector<PlayerEvent> &events);

  private:
    // The result of look().
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
    std::vector<PlayerEvent> picture_; // The complete state, until take() returns it.
    std::string last_reason_;          // The reason for which the last look failed.
    std::string told_reason_;          // The reason that was reported last.
};

} // namespace vantro::ctl

#endif
