#include "service/sound/mpv_core.h"

#include <cerrno>
#include <cstring>

#include <fmt/format.h>

namespace vantro::service::sound {

namespace {

constexpr const char *pcm = "pcm/";
constexpr const char *pipe = "pipe:";

constexpr std::pair<const char *, const char *> fixed_options[] = {
    // Nothing from outside.
    {"config", "no"},
    {"load-scripts", "no"},
    {"ytdl", "no"},
    {"osc", "no"},
    {"load-stats-overlay", "no"},
    {"load-osd-console", "no"},
    {"load-auto-profiles", "no"},
    {"terminal", "no"},
    {"input-default-bindings", "no"},
    // References in a file to other files or addresses are not followed.
    {"access-references", "no"},
    {"autoload-files", "no"},
    {"demuxer", "lavf"}, // no playlists, no disks
    // Sound only.
    {"vid", "no"},
    {"sid", "no"},
    {"audio-display", "no"},
    {"audio-fallback-to-null", "no"}, // an output that cannot be opened is reported
    // Without gaps.
    {"idle", "yes"},
    {"pause", "yes"},
    {"gapless-audio", "yes"},
    {"prefetch-playlist", "yes"},
    {"cache", "no"},
    {"hr-seek", "yes"},
    {"audio-pitch-correction", "yes"},
};

// The outputs that are tried, best first. mpv's own list also has those of `one_player_outputs`.
// PipeWire comes after ALSA because it also opens without a device, and then never plays.
constexpr const char *outputs = "pulse,alsa,pipewire,oss,sndio";

void set_device(const MpvLibrary &mpv, mpv_handle *core, const std::string &device) {
    const std::string driver = device.substr(0, device.find('/'));
    if (driver.empty() || driver == "auto") {
        mpv.set_option_string(core, "ao", outputs);
        return;
    }
    mpv.set_option_string(core, "ao", (driver + "," + outputs).c_str());
    mpv.set_option_string(core, "audio-device", device.c_str());
}

} // namespace

Result<std::unique_ptr<MpvCore>> MpvCore::make(const MpvOptions &options, MpvFiles *files,
                                               const std::string &client) {
    const auto library = mpv_library();
    if (!library) {
        return library.error();
    }
    const MpvLibrary *const mpv = *library;
    mpv_handle *const handle = mpv->create();
    if (!handle) {
        return Error(Error::Origin::library, ELIBACC, "mpv cannot be started");
    }
    std::unique_ptr<MpvCore> core(new MpvCore(*mpv, handle));
    // If a build of mpv lacks an option, it also lacks the feature that the option turns off.
    for (const auto &[name, value] : fixed_options) {
        mpv->set_option_string(handle, name, value);
    }
    mpv->set_option_string(handle, "replaygain", options.replaygain.c_str());
    mpv->set_option_string(handle, "audio-client-name", client.c_str());
    if (options.device == "null") {
        mpv->set_option_string(handle, "ao", "null");
    } else if (options.device.rfind(pcm, 0) == 0) {
        core->in_real_time_ = false;
        mpv->set_option_string(handle, "ao", "pcm");
        mpv->set_option_string(handle, "ao-pcm-file", options.device.c_str() + std::strlen(pcm));
    } else if (options.device.rfind(pipe, 0) == 0) {
        core->in_real_time_ = false;
        const std::string path = options.device.substr(std::strlen(pipe));
        if (std::optional<Error> error = core->pipe_.open(path)) {
            return *std::move(error);
        }
        for (const auto &[name, value] : {std::pair("ao", "pcm"),
                                          {"ao-pcm-file", path.c_str()},
                                          {"ao-pcm-waveheader", "no"},
                                          {"audio-format", "s16"},
                                          {"audio-samplerate", pipe_rate},
                                          {"audio-channels", "stereo"}}) {
            mpv->set_option_string(handle, name, value);
        }
    } else {
        core->tries_several_ = true;
        set_device(*mpv, handle, options.device);
    }
    if (const int error = mpv->initialize(handle); error < 0) {
        return Error(Error::Origin::library, ELIBACC, mpv->error_string(error));
    }
    if (files) {
        files->serve(*mpv, handle);
    }
    mpv->request_log_messages(handle, "error");
    // At the end of an entry mpv waits until go_on().
    mpv->hook_add(handle, 0, "on_unload", 0);
    // Observed without a value, it is reported at every change, however short.
    mpv->observe_property(handle, 0, "idle-active", MPV_FORMAT_NONE);
    return core;
}

namespace {

std::string seconds_text(int64_t time_us) {
    return fmt::format("{:.6f}", static_cast<double>(time_us) / 1e6);
}

} // namespace

// Arguments go by name, since their order differs between releases.
int64_t MpvCore::load_file(int64_t song, const char *how, int64_t start_us, int64_t stop_us) {
    const auto text = [](std::string &value) {
        mpv_node node = {};
        node.format = MPV_FORMAT_STRING;
        node.u.string = value.data();
        return node;
    };
    std::string command = "loadfile";
    std::string url = MpvFiles::name_of(song);
    std::string flags = how;
    std::string option_keys[2];
    std::string option_texts[2];
    mpv_node option_values[2];
    char *option_names[2];
    int options = 0;
    for (const auto &[key, time_us] : {std::pair("start", start_us), std::pair("end", stop_us)}) {
        if (time_us > 0) {
            option_keys[options] = key;
            option_texts[options] = seconds_text(time_us);
            option_names[options] = option_keys[options].data();
            option_values[options] = text(option_texts[options]);
            ++options;
        }
    }
    mpv_node_list file_options = {options, option_values, option_names};
    mpv_node options_node = {};
    options_node.format = MPV_FORMAT_NODE_MAP;
    options_node.u.list = &file_options;

    std::string keys[] = {"name", "url", "flags", "options"};
    char *key_texts[] = {keys[0].data(), keys[1].data(), keys[2].data(), keys[3].data()};
    mpv_node values[] = {text(command), text(url), text(flags), options_node};
    mpv_node_list arguments = {options > 0 ? 4 : 3, values, key_texts};
    mpv_node whole = {};
    whole.format = MPV_FORMAT_NODE_MAP;
    whole.u.list = &arguments;

    mpv_node result = {};
    if (mpv_.command_node(core_, &whole, &result) < 0) {
        return 0;
    }
    int64_t entry = 0;
    if (result.format == MPV_FORMAT_NODE_MAP) {
        for (int i = 0; i < result.u.list->num; ++i) {
            if (std::strcmp(result.u.list->keys[i], "playlist_entry_id") == 0) {
                entry = result.u.list->values[i].u.int64;
            }
        }
    }
    mpv_.free_node_contents(&result);
    return entry;
}

int64_t MpvCore::load(int64_t song, const Part &part, int64_t position_us) {
    return load_file(song, "replace", part.start_us + position_us, part.stop_us);
}

int64_t MpvCore::append(int64_t song, const Part &part) {
    forget_following();
    return load_file(song, "append", part.start_us, part.stop_us);
}

void MpvCore::forget_following() {
    const char *command[] = {"playlist-clear", nullptr};
    mpv_.command(core_, command);
}

void MpvCore::stop() {
    const char *command[] = {"stop", nullptr};
    mpv_.command(core_, command);
}

void MpvCore::set_end(int64_t stop_us) {
    set_text("end", stop_us > 0 ? seconds_text(stop_us).c_str() : "none");
}

bool MpvCore::seek(int64_t position_us) {
    const std::string where = seconds_text(position_us);
    const char *command[] = {"seek", where.c_str(), "absolute+exact", nullptr};
    return mpv_.command(core_, command) >= 0;
}

void MpvCore::set_flag(const char *property, bool value) {
    int flag = value ? 1 : 0;
    mpv_.set_property(core_, property, MPV_FORMAT_FLAG, &flag);
}

void MpvCore::set_number(const char *property, double value) {
    mpv_.set_property(core_, property, MPV_FORMAT_DOUBLE, &value);
}

void MpvCore::set_text(const char *property, const char *value) {
    mpv_.set_property(core_, property, MPV_FORMAT_STRING, &value);
}

bool MpvCore::flag(const char *property) const {
    int flag = 0;
    return mpv_.get_property(core_, property, MPV_FORMAT_FLAG, &flag) >= 0 && flag != 0;
}

bool MpvCore::has_output() const {
    mpv_node name = {};
    if (mpv_.get_property(core_, "current-ao", MPV_FORMAT_NODE, &name) < 0) {
        return false;
    }
    mpv_.free_node_contents(&name);
    return true;
}

std::optional<int64_t> MpvCore::position_us() const {
    return time_us("time-pos");
}

std::optional<int64_t> MpvCore::time_us(const char *property) const {
    double seconds = 0;
    if (mpv_.get_property(core_, property, MPV_FORMAT_DOUBLE, &seconds) < 0) {
        return std::nullopt;
    }
    return static_cast<int64_t>(seconds * 1e6);
}

Devices MpvCore::devices() const {
    Devices found;
    mpv_node list = {};
    if (mpv_.get_property(core_, "audio-device-list", MPV_FORMAT_NODE, &list) < 0) {
        return found;
    }
    for (int i = 0; list.format == MPV_FORMAT_NODE_ARRAY && i < list.u.list->num; ++i) {
        const mpv_node &device = list.u.list->values[i];
        auto &[name, description] = found.emplace_back();
        for (int k = 0; device.format == MPV_FORMAT_NODE_MAP && k < device.u.list->num; ++k) {
            const std::string key = device.u.list->keys[k];
            (key == "name" ? name : description) = device.u.list->values[k].u.string;
        }
    }
    mpv_.free_node_contents(&list);
    return found;
}

Result<Devices> mpv_devices() {
    const auto core = MpvCore::make({}, nullptr, "vantrod");
    if (!core) {
        return core.error();
    }
    return (*core)->devices();
}

} // namespace vantro::service::sound
