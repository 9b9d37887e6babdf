#include "bridges/mpris/bus/values.h"

namespace vantro::mpris {

namespace {

// Appends entries until one fails. An empty text and 0 mean "unknown", and append nothing.
class Entries {
  public:
    explicit Entries(sd_bus_message *to) : to_(to) {
        result_ = sd_bus_message_open_container(to_, 'a', "{sv}");
    }

    void path(const char *key, const std::string &value) { add(!value.empty(), key, "o", value); }
    void text(const char *key, const std::string &value) { add(!value.empty(), key, "s", value); }
    // A list with one text.
    void texts(const char *key, const std::string &value) {
        if (result_ >= 0 && !value.empty()) {
            result_ = sd_bus_message_append(to_, "{sv}", key, "as", 1, value.c_str());
        }
    }
    void number(const char *key, int32_t value) {
        if (result_ >= 0 && value > 0) {
            result_ = sd_bus_message_append(to_, "{sv}", key, "i", value);
        }
    }
    void long_number(const char *key, int64_t value) {
        if (result_ >= 0 && value > 0) {
            result_ = sd_bus_message_append(to_, "{sv}", key, "x", value);
        }
    }
    int close() { return result_ >= 0 ? sd_bus_message_close_container(to_) : result_; }

  private:
    void add(bool known, const char *key, const char *type, const std::string &value) {
        if (result_ >= 0 && known) {
            result_ = sd_bus_message_append(to_, "{sv}", key, type, value.c_str());
        }
    }

    sd_bus_message *to_;
    int result_;
};

const char *error_name(Reason reason) {
    switch (reason) {
    case Reason::timed_out:
        return SD_BUS_ERROR_TIMEOUT;
    case Reason::no_memory:
        return SD_BUS_ERROR_NO_MEMORY;
    case Reason::invalid:
        return SD_BUS_ERROR_INVALID_ARGS;
    default:
        return SD_BUS_ERROR_FAILED;
    }
}

} // namespace

int append_metadata(sd_bus_message *to, const Song &song) {
    Entries entries(to);
    entries.path("mpris:trackid", song.path);
    entries.long_number("mpris:length", song.length_us);
    entries.text("mpris:artUrl", song.art_url);
    entries.text("xesam:title", song.title);
    entries.texts("xesam:artist", song.artist);
    entries.text("xesam:album", song.album);
    entries.texts("xesam:albumArtist", song.album_artist);
    entries.texts("xesam:composer", song.composer);
    entries.texts("xesam:genre", song.genre);
    entries.text("xesam:contentCreated", song.created);
    entries.text("xesam:url", song.url);
    entries.number("xesam:discNumber", song.disc);
    entries.number("xesam:trackNumber", song.track);
    entries.number("xesam:audioBPM", song.beats_per_minute);
    return entries.close();
}

int append_paths(sd_bus_message *to, const std::vector<std::string> &paths) {
    int result = sd_bus_message_open_container(to, 'a', "o");
    for (size_t i = 0; result >= 0 && i < paths.size(); ++i) {
        result = sd_bus_message_append(to, "o", paths[i].c_str());
    }
    return result >= 0 ? sd_bus_message_close_container(to) : result;
}

int set_error(sd_bus_error *error, const Failure &failure) {
    return sd_bus_error_set(error, error_name(failure.why()), clean_text(failure.text).c_str());
}

} // namespace vantro::mpris
