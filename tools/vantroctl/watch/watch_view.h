// The output for followed players.
#ifndef VANTRO_TOOLS_VANTROCTL_WATCH_WATCH_VIEW_H
#define VANTRO_TOOLS_VANTROCTL_WATCH_WATCH_VIEW_H

#include <memory>
#include <string>
#include <vector>

#include "tools/vantroctl/model/player_event.h"
#include "tools/vantroctl/text/template.h"

namespace vantro::ctl {

class WatchView {
  public:
    virtual ~WatchView() = default;

    // Called once before the first take(); nothing is written before that.
    virtual void begin() {}

    virtual void take(const PlayerEvent &event) = 0;

    // The text to write now. Called only when the text of earlier calls has been written.
    virtual std::string output() = 0;

    // The milliseconds after which output() must be called even if nothing happens; -1: never.
    virtual int wake_in_ms() const { return -1; }

    // The signals that the view handles, beside those that end the run.
    virtual std::vector<int> signals() const { return {}; }
    virtual void take_signal(int) {}

    // Whether keys are read from standard input.
    virtual bool reads_keys() const { return false; }
    // @return whether the key ends the run.
    virtual bool take_key(char) { return false; }
};

// One line for each event. @param players in the order in which they were named.
std::unique_ptr<WatchView> make_event_lines(const std::vector<std::string> &players);

// One line for each event, by the template; no line if it is empty, or the same as the previous
// one.
std::unique_ptr<WatchView> make_formatted_events(const std::vector<std::string> &players,
                                                 const Template &format);

// One object of JSON for each event.
std::unique_ptr<WatchView> make_event_objects();

// One screen, drawn again when something changes. The view takes the terminal in begin() and
// restores it when it is destroyed, and also when the process ends by exit() or abort().
// @throws Failure if there is no terminal for it.
std::unique_ptr<WatchView> make_live_screen(const std::vector<std::string> &players);

} // namespace vantro::ctl

#endif
