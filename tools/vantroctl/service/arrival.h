// When to look for a service that does not run.
#ifndef VANTRO_TOOLS_VANTROCTL_SERVICE_ARRIVAL_H
#define VANTRO_TOOLS_VANTROCTL_SERVICE_ARRIVAL_H

#include <string>
#include <vector>

namespace vantro::ctl {

// The directories below which a service of this user, or of the machine, may be found.
struct RuntimeRoot {
    std::string parent; // "/run", or the directory of $XDG_RUNTIME_DIR.
    bool of_user = false;
};

// In the order in which the library looks: the user's own first, if there is one.
std::vector<RuntimeRoot> runtime_roots();

// A service's path and its global name, below "vantro" of a root.
extern const char *const service_places[2];

// Watches the directories in which a service appears, and says when to look for it. Right after a
// change it asks for some looks in a row, since the service may not answer yet; then it waits for
// the next change. If the kernel has no watch left, or a look failed although a service runs, it
// asks for a look once a second.
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

    // The look failed. @param absent whether the reason is that no service runs.
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
