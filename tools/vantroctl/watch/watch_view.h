// How players that are followed are shown.
#ifndef VANTRO_TOOLS_VANTROCTL_WATCH_WATCH_VIEW_H
#define VANTRO_TOOLS_VANTROCTL_WATCH_WATCH_VIEW_H

#include <memory>
#include <string>
#include <vector>

#include "tools/vantroctl/model/player_event.h"

namespace vantro::ctl {

class WatchView {
  public:
    virtual ~WatchView() = default;

    // What follows is shown. Before that nothing is written.
    virtual void begin() {}

    virtual void take(const PlayerEvent &event) = 0;

    // What is to be written now. Called only when all that it gave before has been written.
    virtual std::string output() = 0;

    // When output() is to be asked though nothing happens: in so many milliseconds, -1 for not.
    virtual int wake_in_ms() const { return -1; }

    // The signals that are its own business, beside those that end the run.
    virtual std::vector<int> signals() const { return {}; }
    virtual void take_signal(int) {}

    // Whether keys are read from standard input.
    virtual bool reads_keys() const { return false; }
    // @return whether that is the end.
    virtual bool take_key(char) { return false; }
};

// A line an event. @param players in the order in which they were named.
std::unique_ptr<WatchView> make_event_lines(const std::vector<std::string> &players);

// An object of JSON an event.
std::unique_ptr<WatchView> make_event_objects();

// One screen, drawn again as things change. From its begin() on it has the terminal, and gives it
// back with its end, and also when the process is ended by exit() or abort().
// @throws Failure where there is no terminal for it.
std::unique_ptr<WatchView> make_live_screen(const std::vector<std::string> &players);

} // namespace vantro::ctl

#endif
