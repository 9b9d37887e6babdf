#include "tools/vantroctl/verbs/track_choice.h"

#include <algorithm>
#include <cstdint>
#include <optional>

#include <fmt/format.h>

#include <vantro/player.h>

#include "tools/vantroctl/failure.h"
#include "tools/vantroctl/service/catalogue_queries.h"
#include "tools/vantroctl/service/client.h"
#include "tools/vantroctl/text/time_text.h"
#include "tools/vantroctl/text/words.h"
#include "tools/vantroctl/verbs/listings.h"

namespace vantro::ctl {
namespace {

// The number of tracks in one request.
constexpr int32_t page_tracks = 1000;

// The lengths of a session's tracks; keeps one page of them.
class Lengths {
  public:
    Lengths(Client &client, uint64_t session) : client_(client), session_(session) {}

    int32_t of(int32_t index) {
        const int32_t first = index / page_tracks * page_tracks;
        if (page_.empty() || first != first_) {
            page_ = tracks_page(client_, session_, first, page_tracks);
            first_ = first;
        }
        const auto at = static_cast<size_t>(index - first);
        if (at >= page_.size() || page_[at].duration_ms <= 0) {
            throw Failure(Outcome::not_found,
                          fmt::format("the length of track {} is not known", index + 1));
        }
        return page_[at].duration_ms;
    }

  private:
    Client &client_;
    const uint64_t session_;
    std::vector<Node> page_;
    int32_t first_ = 0;
};

} // namespace

CommandResult run_play_found(Client &client, const std::vector<std::string> &words) {
    const SessionStatus session = client.need_session();
    for (int32_t first = 0; first < session.length; first += page_tracks) {
        const std::vector<Node> page =
            tracks_page(client, static_cast<uint64_t>(session.id), first, page_tracks);
        for (size_t i = 0; i < page.size(); ++i) {
            const Node &node = page[i];
            if (has_words(node.name + '\n' + node.artist + '\n' + node.album, words)) {
                return run_play(client, first + static_cast<int32_t>(i) + 1);
            }
        }
    }
    throw Failure(Outcome::not_found,
                  fmt::format("no track contains \"{}\"", fmt::join(words, " ")));
}

CommandResult run_seek_through(Client &client, const std::string &text) {
    const std::optional<SeekTarget> by = parse_seek(text);
    if (!by) {
        throw Failure(Outcome::usage, "--through: a time is 83, 1:23, +10 or -1:30");
    }
    const SessionStatus session = client.need_session();
    const PlayerStatus status = client.status();
    if (!status.track) {
        throw Failure(Outcome::not_found, "the current track is no longer known");
    }
    if (status.shuffle != VANTRO_SHUFFLE_OFF) {
        throw Failure(Outcome::failed, "in random order only the service knows what follows");
    }
    Lengths lengths(client, static_cast<uint64_t>(session.id));
    int32_t index = status.track->index;
    int64_t position_ms = int64_t{status.position_ms} + by->ms;
    while (position_ms < 0 && index > 0) {
        position_ms += lengths.of(--index);
    }
    while (position_ms >= lengths.of(index)) {
        position_ms -= lengths.of(index);
        if (++index >= session.length) {
            throw Failure(Outcome::not_found, "the last track ends before that");
        }
    }
    CommandResult done{.command = "seek",
                       .position_ms = static_cast<int32_t>(std::max(position_ms, int64_t{0}))};
    if (index != status.track->index) {
        jump_to(client, index);
        done.index = index;
    }
    client.carry_out_on_tracks(
        "seek", [&](VantroHandle *handle) { return vantro_seek(handle, *done.position_ms); });
    return done;
}

} // namespace vantro::ctl
