#include "bridges/mpris/player_link.h"

#include <cerrno>
#include <optional>
#include <utility>

namespace vantro::mpris {

namespace {

// The allowed number of undecodable changes in a row. If the objects' file is corrupt, only such
// changes come.
constexpr int not_understood_max = 100;
// Most queries about one suspicion: if events come in between, the answer may belong to another
// state than the prediction.
constexpr int questions_max = 3;

} // namespace

Result<PlayerLink> PlayerLink::open(const std::string &name) {
    Result<Player> player = Player::connect(name.c_str(), answer_limit);
    if (!player) {
        return player.failure();
    }
    PlayerLink link(*std::move(player));
    const Result<int> descriptor = link.player_.events().descriptor();
    if (!descriptor) {
        return descriptor.failure();
    }
    link.descriptor_ = *descriptor;
    link.ask_for_volume();
    if (const Result<void> followed = link.follow(); !followed) {
        return followed.failure();
    }
    link.jumped_ = false; // Not a jump: the track begins at this position.
    return link;
}

Result<void> PlayerLink::seek(std::chrono::milliseconds position) {
    const std::optional<Current> before = mirror_.current();
    if (const Result<void> done = player_.seek(position); !done) {
        return done;
    }
    if (const Result<bool> read = read_events(); !read) {
        return read.failure();
    }
    // At the end of a track, the next one may be current already.
    if (before && mirror_.current() && mirror_.current()->place == before->place) {
        mirror_.forget_suspicion();
        jumped_ = true;
    }
    return {};
}

Result<void> PlayerLink::follow() {
    Result<bool> news = read_events();
    for (int asked = 0; news && mirror_.suspects_jump() && asked < questions_max; ++asked) {
        const Result<Player::Milliseconds> position = player_.position();
        const auto now = std::chrono::steady_clock::now();
        if (!position) {
            mirror_.forget_suspicion();
            break;
        }
        // The events of all changes before the answer have come by now.
        news = read_events();
        if (news && mirror_.suspects_jump() && (!*news || asked + 1 == questions_max)) {
            jumped_ |= mirror_.settle(static_cast<double>(position->count()), now);
        }
    }
    if (!news) {
        return news.failure();
    }
    if (mirror_.take_track_news()) {
        ask_for_song();
    }
    return {};
}

Result<bool> PlayerLink::read_events() {
    bool any = false;
    for (int not_understood = 0; not_understood < not_understood_max;) {
        const Result<std::optional<Event>> next = player_.events().next();
        if (next && !*next) {
            return any;
        }
        if (next) {
            mirror_.apply(**next, std::chrono::steady_clock::now());
            any = true;
            not_understood = 0;
        } else if (next.failure().number == EBADMSG) {
            ++not_understood;
        } else {
            return next.failure();
        }
    }
    return Failure::of_errno(EBADMSG);
}

// An event's texts may be cut; the catalogue has the complete ones.
void PlayerLink::ask_for_song() {
    const std::optional<Current> &current = mirror_.current();
    if (current && !current->node_id.empty()) {
        Song song = current->song;
        complete(song, player_, current->ms_id, current->node_id);
        mirror_.set_song(std::move(song));
    }
}

// The volume is published only after it was set.
void PlayerLink::ask_for_volume() {
    if (const Result<VantroVolume> volume = player_.volume()) {
        mirror_.set_volume(*volume);
    }
}

} // namespace vantro::mpris
