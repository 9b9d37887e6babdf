#include "service/reload.h"

#include <exception>
#include <utility>

#include <fmt/format.h>

#include <vantro/platform/log.h>

#include "service/error.h"
#include "service/options.h"
#include "service/service_manager.h"

namespace vantro::service {

namespace {

// What a reload puts into effect.
bool takes_effect(const std::string &key) {
    return key == "log-level" || key == "replaygain";
}

} // namespace

void Reload::set_actions(Actions actions) {
    bool owed = false;
    {
        const MutexLock guard(mutex_);
        actions_ = std::move(actions);
        owed = actions_.rescan && std::exchange(asked_, false);
    }
    if (owed) {
        run();
    }
}

void Reload::run() noexcept {
    try {
        const MutexLock guard(mutex_);
        if (!actions_.rescan) {
            asked_ = true;
            return;
        }
        service_manager::tell_reloading();
        Options wanted;
        const std::string error = read_options_again(argc_, argv_, wanted);
        if (error.empty()) {
            actions_.set_replaygain(wanted.replaygain);
            apply(wanted.settings);
            system_log_set_level(wanted.log_level);
        } else {
            log_(LOG_SEVERITY_ERROR, "the configuration stays as it was: " + error);
        }
        actions_.rescan();
    } catch (const std::exception &thrown) {
        log_(LOG_SEVERITY_ERROR, fmt::format("the configuration could not be read again: {}",
                                             log_text(error_of(thrown))));
    }
    service_manager::tell_ready();
}

void Reload::apply(const std::vector<config::Setting> &wanted) {
    log_(LOG_SEVERITY_NOTICE, "the configuration was read again; the music is looked at again");
    // Both have every option, in the same order.
    for (size_t i = 0; i < wanted.size() && i < running_.size(); ++i) {
        if (wanted[i].value != running_[i].value && !takes_effect(wanted[i].key)) {
            log_(LOG_SEVERITY_WARNING,
                 fmt::format("{}: {} has changed; that takes effect at the next start",
                             wanted[i].origin, wanted[i].key));
        }
    }
}

} // namespace vantro::service
