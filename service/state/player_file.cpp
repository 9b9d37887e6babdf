#include "service/state/player_file.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include <vantro/catalogue.h>
#include <vantro/extras.h>
#include <vantro/player.h>

namespace vantro::service::state {

namespace {

using playback::Engine;

constexpr std::string_view session_title = "vantro player, session 1";
constexpr std::string_view position_title = "vantro player, position 1";

// Detects changes by a faulty disk or by hand; it does not prevent forged files.
uint64_t sum_of(std::string_view text) {
    uint64_t sum = 0xCBF29CE484222325;
    for (const char c : text) {
        sum = (sum ^ static_cast<unsigned char>(c)) * 0x100000001B3;
    }
    return sum;
}

std::string finished(std::string text) {
    text += fmt::format("sum {:016x}\n", sum_of(text));
    return text;
}

// Reads words and numbers from the front of a text. After the first unexpected one, all further
// reads fail.
class Reader {
  public:
    explicit Reader(std::string_view text) : rest_(text) {}

    bool good() const { return good_; }
    bool at_end() const { return rest_.empty(); }
    void expect(std::string_view word) {
        good_ = good_ && rest_.starts_with(word);
        rest_.remove_prefix(good_ ? word.size() : 0);
    }
    template <typename Number>
    Number number(Number least, Number most) {
        expect(" ");
        Number value{};
        const char *const end = rest_.data() + rest_.size();
        const auto [stop, error] = std::from_chars(rest_.data(), end, value);
        good_ = good_ && error == std::errc() && value >= least && value <= most;
        rest_.remove_prefix(good_ ? static_cast<size_t>(stop - rest_.data()) : 0);
        return good_ ? value : least;
    }

  private:
    std::string_view rest_;
    bool good_ = true;
};

// The text without its checksum; nothing if the checksum is wrong.
std::optional<std::string_view> checked(std::string_view text) {
    constexpr size_t sum_bytes = 4 + 16 + 1;
    if (text.size() < sum_bytes) {
        return std::nullopt;
    }
    const std::string_view body = text.substr(0, text.size() - sum_bytes);
    const std::string sum = fmt::format("sum {:016x}\n", sum_of(body));
    return text.substr(body.size()) == sum ? std::optional(body) : std::nullopt;
}

std::string head(std::string_view title, const KeptPlayer &player) {
    const Engine::Saved &saved = player.saved;
    return fmt::format("{}\nedition {}\nplace {} {}\nmodes {} {} {} {}\nvolume {} {}\n", title,
                       player.edition, saved.place, saved.position_us, saved.modes.state,
                       saved.modes.rate, saved.modes.repeat, saved.modes.shuffle,
                       saved.volume.level, saved.volume.muted);
}

void read_head(Reader &reader, std::string_view title, KeptPlayer &player) {
    Engine::Saved &saved = player.saved;
    reader.expect(title);
    reader.expect("\nedition");
    player.edition = reader.number<uint64_t>(0, UINT64_MAX);
    reader.expect("\nplace");
    saved.place = reader.number<int32_t>(0, VANTRO_TRKSESSION_SONGS_MAX - 1);
    saved.position_us = reader.number<int64_t>(0, int64_t{1000} * INT32_MAX);
    reader.expect("\nmodes");
    saved.modes.state = reader.number<int32_t>(VANTRO_STATE_IDLE, VANTRO_STATE_STOPPED);
    saved.modes.rate =
        reader.number<float>(std::numeric_limits<float>::denorm_min(), playback::rate_max);
    saved.modes.repeat = reader.number<int32_t>(VANTRO_REPEAT_OFF, VANTRO_REPEAT_ONE);
    saved.modes.shuffle = reader.number<int32_t>(VANTRO_SHUFFLE_OFF, VANTRO_SHUFFLE_ON);
    reader.expect("\nvolume");
    saved.volume.level = reader.number<int32_t>(0, playback::volume_max);
    saved.volume.muted = reader.number<int32_t>(0, 1);
    reader.expect("\n");
}

bool is_permutation(const std::vector<int32_t> &order) {
    std::vector<bool> seen(order.size());
    for (const int32_t at : order) {
        if (seen[static_cast<size_t>(at)]) {
            return false;
        }
        seen[static_cast<size_t>(at)] = true;
    }
    return true;
}

// A player with a session is not idle, its place is in the session, and with shuffle it has an
// order.
bool fits(const Engine::Saved &saved) {
    if (!saved.session) {
        return saved.modes.state == VANTRO_STATE_IDLE && saved.place == 0 && saved.position_us == 0;
    }
    const auto &songs = saved.session->songs;
    if (saved.modes.state == VANTRO_STATE_IDLE ||
        static_cast<size_t>(saved.place) >= songs.size() ||
        saved.order.empty() != (saved.modes.shuffle == VANTRO_SHUFFLE_OFF)) {
        return false;
    }
    const int32_t at =
        saved.order.empty() ? saved.place : saved.order[static_cast<size_t>(saved.place)];
    return saved.position_us <= playback::length_of(songs[static_cast<size_t>(at)]);
}

} // namespace

std::string write_session(const KeptPlayer &player) {
    const Engine::Saved &saved = player.saved;
    std::string text = head(session_title, player);
    if (!saved.session) {
        return finished(std::move(text) + "songs 0\n");
    }
    const std::vector<catalogue::QueuedSong> &songs = saved.session->songs;
    fmt::format_to(std::back_inserter(text), "songs {} {} {} {}\n", songs.size(),
                   saved.session->tsid, saved.session->type, saved.order.size());
    for (size_t i = 0; i < songs.size(); ++i) {
        fmt::format_to(std::back_inserter(text), " {} {} {}", songs[i].id, songs[i].source,
                       songs[i].duration_ms);
        if (!saved.order.empty()) {
            fmt::format_to(std::back_inserter(text), " {}", saved.order[i]);
        }
        text += '\n';
    }
    return finished(std::move(text));
}

std::string write_position(const KeptPlayer &player) {
    return finished(head(position_title, player));
}

std::optional<KeptPlayer> read_session(std::string_view text) {
    const std::optional<std::string_view> body = checked(text);
    if (!body) {
        return std::nullopt;
    }
    KeptPlayer player;
    Reader reader(*body);
    read_head(reader, session_title, player);
    reader.expect("songs");
    const auto count = reader.number<int32_t>(0, VANTRO_TRKSESSION_SONGS_MAX);
    if (reader.good() && count > 0) {
        const auto tsid = reader.number<uint64_t>(1, INT32_MAX);
        const auto type = reader.number<int32_t>(VANTRO_TRKSESSION_ALL, VANTRO_TRKSESSION_NODE);
        const auto ordered = reader.number<int32_t>(0, count);
        reader.expect("\n");
        std::vector<catalogue::QueuedSong> songs(static_cast<size_t>(count));
        std::vector<int32_t> order(static_cast<size_t>(ordered));
        for (size_t i = 0; i < songs.size() && reader.good(); ++i) {
            songs[i].id = reader.number<int64_t>(INT64_MIN, INT64_MAX);
            songs[i].source = reader.number<int32_t>(1, INT32_MAX);
            songs[i].duration_ms = reader.number<int32_t>(0, INT32_MAX);
            if (i < order.size()) {
                order[i] = reader.number<int32_t>(0, count - 1);
            }
            reader.expect("\n");
        }
        if (!reader.good() || !reader.at_end() || (ordered != 0 && ordered != count) ||
            !is_permutation(order)) {
            return std::nullopt;
        }
        player.saved.order = std::move(order);
        player.saved.session =
            std::make_shared<const playback::TrackSession>(tsid, type, std::move(songs));
    } else {
        reader.expect("\n");
    }
    return reader.good() && reader.at_end() && fits(player.saved) ? std::optional(std::move(player))
                                                                  : std::nullopt;
}

bool read_position(std::string_view text, KeptPlayer &player) {
    const std::optional<std::string_view> body = checked(text);
    if (!body) {
        return false;
    }
    KeptPlayer newer;
    Reader reader(*body);
    read_head(reader, position_title, newer);
    if (!reader.good() || !reader.at_end()) {
        return false;
    }
    if (newer.edition != player.edition) {
        return true; // belongs to an earlier session
    }
    newer.saved.session = player.saved.session;
    newer.saved.order = player.saved.order;
    if (!fits(newer.saved)) {
        return false;
    }
    player = std::move(newer);
    return true;
}

} // namespace vantro::service::state
