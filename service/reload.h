// Reading the configuration again while the service runs.
#ifndef VANTRO_SERVICE_RELOAD_H
#define VANTRO_SERVICE_RELOAD_H

#include <functional>
#include <string>
#include <vector>

#include "common/locks.h"
#include "service/config/setting.h"

namespace vantro::service {

// A file that is wrong changes nothing. What cannot change while the service runs is named in the
// log.
class Reload {
  public:
    using Log = std::function<void(int severity, const std::string &line)>;

    // Borrows the command line. `running` is what the service runs with.
    Reload(int argc, char **argv, std::vector<config::Setting> running, Log log)
        : argc_(argc), argv_(argv), running_(std::move(running)), log_(std::move(log)) {}

    struct Actions {
        std::function<void()> rescan; // looks at all of the music again
        std::function<void(const std::string &mode)> set_replaygain; // as mpv has it
    };

    // The service runs. Until then, and after actions without a rescan, no reload is carried out.
    void set_actions(Actions actions) EXCLUDES(mutex_);

    // Any thread. Throws nothing.
    void run() noexcept EXCLUDES(mutex_);

  private:
    void apply(const std::vector<config::Setting> &wanted);

    const int argc_;
    char **const argv_;
    const std::vector<config::Setting> running_;
    const Log log_;
    Mutex mutex_;
    Actions actions_ GUARDED_BY(mutex_);
    bool asked_ GUARDED_BY(mutex_) = false; // before it could be carried out
};

} // namespace vantro::service

#endif
