// Reading the configuration again while the service runs.
#ifndef VANTRO_SERVICE_RELOAD_H
#define VANTRO_SERVICE_RELOAD_H

#include <functional>
#include <optional>
#include <string>

#include "common/locks.h"
#include "service/error.h"
#include "service/options.h"

namespace vantro::service {

// An invalid file changes nothing. The log names the changes that take effect only at the next
// start.
class Reload {
  public:
    using Log = std::function<void(int severity, const std::string &line)>;

    // Borrows the command line. `running` has the options in effect.
    Reload(int argc, char **argv, Options running, Log log)
        : argc_(argc), argv_(argv), log_(std::move(log)), running_(std::move(running)) {}

    struct Actions {
        std::function<void()> rescan;                                // scans all of the music again
        std::function<void(const std::string &mode)> set_replaygain; // mpv's value
        std::function<void(const Options &wanted)> set_volume_limits;
        std::function<void(const Options &wanted)> set_music; // directories and roots
        // Adds a player, with the output in `wanted`. Returns an error if it fails.
        std::function<std::optional<Error>(const std::string &player, const Options &wanted)>
            add_player;
    };

    // Called when the service runs. Before that call, and while the actions have no `rescan`,
    // reloads are not carried out.
    void set_actions(Actions actions) EXCLUDES(mutex_);

    // Any thread. Does not throw.
    void run() noexcept EXCLUDES(mutex_);

  private:
    std::string read(Options &wanted) REQUIRES(mutex_);
    void apply(const Options &wanted) REQUIRES(mutex_);
    void add_players(const Options &wanted) REQUIRES(mutex_);
    void name_left(const Options &wanted) REQUIRES(mutex_);
    void warn(const config::Setting &wanted, const std::string &what) const;

    const int argc_;
    char **const argv_;
    const Log log_;
    Mutex mutex_;
    Options running_ GUARDED_BY(mutex_);
    Actions actions_ GUARDED_BY(mutex_);
    bool asked_ GUARDED_BY(mutex_) = false; // a reload was requested before it could be carried out
};

} // namespace vantro::service

#endif
