// When to look for a service that is not there.
#ifndef VANTRO_TOOLS_VANTROCTL_SERVICE_ARRIVAL_H
#define VANTRO_TOOLS_VANTROCTL_SERVICE_ARRIVAL_H

#include <string>
#include <vector>

namespace vantro::ctl {

// The directories that a service of this user, or of the machine, may be found below.
struct RuntimeRoot {
    std::string parent; // "/run", or what $XDG_RUNTIME_DIR names.
    bool of_user = false;
};

// In the order in which the library looks: the user's own first, if there is one.
std::vector<RuntimeRoot> runtime_roots();

// A service's path and its global name, below "vantro" of a root.
extern const char *const service_places[2];

// It watches the directories in which a service appears, and says when a look is worth it. Right
// after a change it asks for some looks in a row, since the service may not answer yet; then it
// waits for the next change. If the host has no watch left, or the look failed although a service
// is there, it asks for a look once a second.
//
//     Arrival arrival;
//     for (arrival.prepare(); !look(); arrival.prepare()) {
//         arrival.failed(absent);
//         // poll() the descriptor for pause_ms()
//     }
class Arrival {
  public:
    Arrival();
    ~Arrival();
    Arrival(const Arrival &) = delete;
    Arrival &operator=(const Arrival &) = delete;

    // Call it before each look: changes from then on are not missed.
    void prepare();

    // The look found no service. @param absent false if something else than its absence is the
    // reason.
    void failed(bool absent);

    // Readable after a change; -1 if changes cannot be watched.
    int descriptor() const { return descriptor_; }

    // How long to wait for the descriptor before the next look; -1: without a limit.
    int pause_ms() const { return pause_ms_; }

  private:
    bool take_events();

    int descriptor_;
    int pause_ms_ = 0;
};

} // namespace vantro::ctl

#endif
