#include "tools/vantroctl/verbs/queue.h"

#include <algorithm>
#include <charconv>
#include <iostream>
#include <random>
#include <sstream>

#include <fmt/format.h>

#include <vantro/catalogue.h>

#include "tools/vantroctl/failure.h"
#include "tools/vantroctl/output/standard_output.h"
#include "tools/vantroctl/service/catalogue_queries.h"
#include "tools/vantroctl/service/client.h"
#include "tools/vantroctl/text/node_ref.h"
#include "tools/vantroctl/verbs/play_watch.h"

namespace vantro::ctl {
namespace {

// Tracks fetched at a time.
constexpr int32_t page_tracks = 1000;

CommandResult done(const NewSession &wanted, const LoadedSession &session) {
    if (session.scanning) {
        complain(fmt::format("source {} is still being scanned: songs that are found from now on "
                             "are not loaded",
                             *session.scanning));
    }
    return {.command = wanted.verb,
            .session = static_cast<int64_t>(session.id),
            .found = wanted.found,
            .scanning = session.scanning.has_value()};
}

// Adds the songs of a source that contain all words to `places`.
void find_songs(Client &client, int32_t source, const std::string &words,
                std::vector<Place> &places) {
    for (int32_t offset = 0;; offset += page_tracks) {
        const std::vector<Node> page = search_page(client, source, "", words, offset, page_tracks);
        for (const Node &node : page) {
            if (node.type == VANTRO_NODE_SONG) {
                places.push_back({node.source, node.id});
            }
        }
        if (static_cast<int32_t>(page.size()) != page_tracks) {
            return;
        }
    }
}

std::vector<Place> search_places(Client &client, const ListOptions &options,
                                 const std::vector<std::string> &words) {
    const std::string text = fmt::format("{}", fmt::join(words, " "));
    std::vector<Place> places;
    if (options.source) {
        find_songs(client, *options.source, text, places);
    } else {
        for (const Source &source : get_sources(client)) {
            find_songs(client, source.id, text, places);
        }
    }
    if (places.empty()) {
        throw Failure(Outcome::not_found, fmt::format("no song contains \"{}\"", text));
    }
    return places;
}

std::vector<Place> places_of(Client &client, const ListOptions &options, const QueueNodes &wanted) {
    if (wanted.search) {
        return search_places(client, options, wanted.nodes);
    }
    const std::vector<std::string> &nodes = wanted.nodes;
    std::vector<Place> places;
    places.reserve(nodes.size());
    for (const std::string &node : nodes) {
        if (node != "-") {
            places.push_back(place_of(client, options, node));
            continue;
        }
        for (const std::string &named : nodes_in(std::cin)) {
            places.push_back(place_of(client, options, named));
        }
    }
    if (places.empty()) {
        throw Failure(Outcome::not_found, "standard input names no node");
    }
    return places;
}

std::optional<int64_t> songs_found(const QueueNodes &nodes, const NewSession &wanted) {
    return nodes.search ? std::optional(static_cast<int64_t>(wanted.places.size())) : std::nullopt;
}

// The tracks of the player's session, for changing and storing them.
class Queue {
  public:
    explicit Queue(Client &client) : client_(client), session_(client.need_session()) {
        while (static_cast<int32_t>(tracks_.size()) < session_.length) {
            const std::vector<Node> page =
                tracks_page(client, id(), static_cast<int32_t>(tracks_.size()), page_tracks);
            if (page.empty()) {
                break;
            }
            for (const Node &node : page) {
                tracks_.push_back({{node.source, node.id}, static_cast<int32_t>(tracks_.size())});
            }
        }
        const std::optional<TrackStatus> track = client.track();
        current_ = track ? track->index : 0;
    }

    // Throws Failure if there is no such track.
    void need(int32_t number) const {
        if (number < 1 || number > length()) {
            throw Failure(Outcome::not_found,
                          fmt::format("no track {}: the session has {}", number, length()));
        }
    }

    void remove(const TrackRange &range) {
        std::erase_if(tracks_, [&](const Track &track) {
            return track.before >= range.first - 1 && track.before < range.last;
        });
    }
    void crop() {
        std::erase_if(tracks_, [this](const Track &track) { return track.before != current_; });
    }
    void move(int32_t from, int32_t to) {
        const auto begin = tracks_.begin();
        if (from < to) {
            std::rotate(begin + from - 1, begin + from, begin + to);
        } else {
            std::rotate(begin + to - 1, begin + from - 1, begin + from);
        }
    }

    // The current track comes first, so that no track is skipped.
    void mix() {
        std::mt19937 random{std::random_device{}()};
        std::shuffle(tracks_.begin(), tracks_.end(), random);
        std::partition(tracks_.begin(), tracks_.end(),
                       [this](const Track &track) { return track.before == current_; });
    }

    // Makes a session of the remaining tracks. The player continues at the current track, or at the
    // next remaining one; if there is none, it stops.
    CommandResult give_back(const std::string &verb) {
        drop_unknown();
        if (tracks_.empty()) {
            end_session(client_, verb, id());
            return {.command = verb};
        }
        NewSession wanted{verb, {}, 0, VANTRO_TRKSESSION_KEEP};
        int32_t nearest = session_.length;
        for (size_t i = 0; i < tracks_.size(); ++i) {
            wanted.places.push_back(tracks_[i].place);
            const int32_t before = tracks_[i].before;
            if (before >= current_ && before < nearest) {
                nearest = before;
                wanted.index = static_cast<int32_t>(i);
            }
        }
        if (nearest == session_.length) {
            client_.carry_out(verb, vantro_stop); // before the first track could be heard
        }
        return done(wanted, make_session(client_, wanted));
    }

    uint64_t id() const { return static_cast<uint64_t>(session_.id); }
    int32_t length() const { return session_.length; }

  private:
    struct Track {
        Place place;
        int32_t before; // Its index in the session before the change.
    };

    // A track that has left the catalogue has no node, so no request can name it.
    void drop_unknown() {
        const size_t unknown =
            std::erase_if(tracks_, [](const Track &track) { return track.place.id.empty(); });
        if (unknown > 0) {
            complain(
                fmt::format("{} tracks that are no longer in the catalogue are left out", unknown));
        }
    }

    Client &client_;
    const SessionStatus session_;
    std::vector<Track> tracks_;
    int32_t current_ = 0;
};

} // namespace

std::optional<TrackRange> parse_track_range(std::string_view text) {
    TrackRange range;
    const char *const end = text.data() + text.size();
    auto [at, error] = std::from_chars(text.data(), end, range.first);
    range.last = range.first;
    if (error == std::errc() && at != end && *at == '-') {
        const auto last = std::from_chars(at + 1, end, range.last);
        at = last.ptr;
        error = last.ec;
    }
    const bool good =
        error == std::errc() && at == end && range.first >= 1 && range.last >= range.first;
    return good ? std::optional(range) : std::nullopt;
}

std::vector<std::string> nodes_in(std::istream &lines) {
    std::vector<std::string> nodes;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream columns(line);
        std::string node;
        for (std::string column; std::getline(columns, column, '\t');) {
            node = node.empty() ? column : node;
            if (parse_ref(column).source) {
                node = column;
                break;
            }
        }
        if (!node.empty()) {
            nodes.push_back(node);
        }
    }
    return nodes;
}

CommandResult run_load(Client &client, const ListOptions &options, const QueueNodes &nodes,
                       int32_t number, bool play) {
    NewSession wanted{"load", places_of(client, options, nodes), number - 1,
                      play ? VANTRO_TRKSESSION_PLAY : VANTRO_TRKSESSION_LOAD};
    wanted.found = songs_found(nodes, wanted);
    std::optional<PlayWatch> watch;
    if (play) {
        watch.emplace(client);
    }
    CommandResult result = done(wanted, make_session(client, wanted));
    if (watch) {
        watch->await();
    }
    return result;
}

CommandResult run_add(Client &client, const ListOptions &options, const std::string &verb,
                      const QueueNodes &nodes) {
    NewSession wanted{verb, places_of(client, options, nodes), 0,
                      verb == "add" ? VANTRO_TRKSESSION_APPEND : VANTRO_TRKSESSION_INSERT};
    wanted.found = songs_found(nodes, wanted);
    return done(wanted, make_session(client, wanted));
}

CommandResult run_remove(Client &client, const std::vector<std::string> &ranges) {
    Queue queue(client);
    for (const std::string &text : ranges) {
        const std::optional<TrackRange> range = parse_track_range(text);
        if (!range) {
            throw Failure(Outcome::usage, "not understood: " + text);
        }
        queue.need(range->last);
        queue.remove(*range);
    }
    return queue.give_back("remove");
}

CommandResult run_move(Client &client, int32_t from, int32_t to) {
    Queue queue(client);
    queue.need(from);
    queue.need(to);
    queue.move(from, to);
    return queue.give_back("move");
}

CommandResult run_mix(Client &client) {
    Queue queue(client);
    queue.mix();
    return queue.give_back("mix");
}

CommandResult run_crop(Client &client) {
    Queue queue(client);
    queue.crop();
    return queue.give_back("crop");
}

CommandResult run_clear(Client &client) {
    if (const std::optional<SessionStatus> session = client.session()) {
        end_session(client, "clear", static_cast<uint64_t>(session->id));
    }
    return {.command = "clear"};
}

} // namespace vantro::ctl
