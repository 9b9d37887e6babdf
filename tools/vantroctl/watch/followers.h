// Follows all watched players in one thread.
#ifndef VANTRO_TOOLS_VANTROCTL_WATCH_FOLLOWERS_H
#define VANTRO_TOOLS_VANTROCTL_WATCH_FOLLOWERS_H

#include <memory>
#include <vector>

#include "tools/vantroctl/model/player_event.h"
#include "tools/vantroctl/service/arrival.h"
#include "tools/vantroctl/service/client.h"
#include "tools/vantroctl/watch/follower.h"

namespace vantro::ctl {

// Events are not read ahead: they stay in the service's rings until they are taken.
class Followers {
  public:
    // @param options of each player. @throws Failure if one cannot be followed.
    explicit Followers(const std::vector<ClientOptions> &options);
    ~Followers();
    Followers(const Followers &) = delete;
    Followers &operator=(const Followers &) = delete;

    // Readable, for poll(), while there may be events to take.
    int descriptor() const { return descriptor_; }

    // The milliseconds after which take() must be called even if nothing happens; -1: never.
    int wake_in_ms() const;

    // The events since the last call, each player's oldest first. Waits only while a service that
    // has come back does not answer yet, a second a player at most. @throws Failure.
    std::vector<PlayerEvent> take();

  private:
    void listen_to(int descriptor);
    void listen_to_new();
    void look_for_service(std::vector<PlayerEvent> &events);
    bool any_gone() const;

    int descriptor_;
    std::vector<std::unique_ptr<Follower>> followers_;
    std::vector<int> listened_;        // The descriptor watched for each follower; -1: none.
    std::unique_ptr<Arrival> arrival_; // While a service is gone.
};

} // namespace vantro::ctl

#endif
