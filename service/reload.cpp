#include "service/reload.h"

#include <algorithm>
#include <exception>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include <vantro/platform/log.h>

#include "service/music_check.h"
#include "service/service_manager.h"

namespace vantro::service {

namespace {

bool has(const std::vector<std::string> &all, const std::string &one) {
    return std::find(all.begin(), all.end(), one) != all.end();
}

// Settings that a reload puts into effect as a whole.
bool takes_effect(const std::string &key) {
    return has({"log-level", "media-root", "music", "replaygain", "volume-limit"}, key);
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
        const std::string error = read(wanted);
        if (error.empty()) {
            apply(wanted);
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

// Returns an error text, or "".
std::string Reload::read(Options &wanted) {
    std::string error = read_options_again(argc_, argv_, wanted);
    if (!error.empty()) {
        return error;
    }
    std::vector<std::string> known = running_.music;
    known.insert(known.end(), running_.media_roots.begin(), running_.media_roots.end());
    const std::optional<WrongMusic> wrong = check_music(wanted, known);
    return wrong ? wrong->place + log_text(wrong->error) : "";
}

void Reload::apply(const Options &wanted) {
    actions_.set_replaygain(wanted.replaygain);
    actions_.set_volume_limits(wanted);
    if (wanted.music != running_.music || wanted.media_roots != running_.media_roots) {
        actions_.set_music(wanted);
        running_.music = wanted.music;
        running_.media_roots = wanted.media_roots;
    }
    // Not earlier: whoever reads this line relies on the new values.
    log_(LOG_SEVERITY_NOTICE, "the configuration was read again; the music is scanned again");
    name_left(wanted);
    add_players(wanted);
    system_log_set_level(wanted.log_level);
}

void Reload::add_players(const Options &wanted) {
    for (const std::string &player : wanted.players) {
        if (has(running_.players, player)) {
            continue;
        }
        // The outputs of the running players stay as they are until the next start.
        Options together = running_;
        together.players.push_back(player);
        together.audio_devices[player] = device_of(wanted, player);
        std::string refusal = check_outputs(together);
        if (refusal.empty()) {
            if (const std::optional<Error> error = actions_.add_player(player, wanted)) {
                refusal = log_text(*error);
            }
        }
        if (!refusal.empty()) {
            log_(LOG_SEVERITY_ERROR,
                 fmt::format("player \"{}\" cannot be added: {}", player, refusal));
            continue;
        }
        running_.players = std::move(together.players);
        running_.audio_devices = std::move(together.audio_devices);
        log_(LOG_SEVERITY_NOTICE, fmt::format("player \"{}\" was added", player));
    }
}

// Logs the changed settings that do not take effect now.
void Reload::name_left(const Options &wanted) {
    // Both have every option, in the same order.
    for (size_t i = 0; i < wanted.settings.size() && i < running_.settings.size(); ++i) {
        const config::Setting &setting = wanted.settings[i];
        if (setting.key == "player") {
            for (const std::string &player : running_.players) {
                if (!has(wanted.players, player)) {
                    warn(setting, fmt::format("player \"{}\" is left out", player));
                }
            }
        } else if (setting.key == "audio-device") {
            for (const std::string &player : running_.players) {
                if (device_of(wanted, player) != device_of(running_, player)) {
                    warn(setting, fmt::format("the output of player \"{}\" has changed", player));
                }
            }
        } else if (setting.value != running_.settings[i].value && !takes_effect(setting.key)) {
            warn(setting, setting.key + " has changed");
        }
    }
}

void Reload::warn(const config::Setting &wanted, const std::string &what) const {
    log_(LOG_SEVERITY_WARNING,
         fmt::format("{}: {}; that takes effect at the next start", wanted.origin, what));
}

} // namespace vantro::service
