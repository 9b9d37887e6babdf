#include "tools/vantroctl/service/catalogue_queries.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <iterator>
#include <string_view>

#include <fmt/format.h>

#include <vantro/catalogue.h>
#include <vantro/extras.h>
#include <vantro/player.h>
#include <vantro/protocol.h>

#include "tools/vantroctl/failure.h"
#include "tools/vantroctl/service/client.h"
#include "tools/vantroctl/service/library_records.h"
#include "tools/vantroctl/service/refusal.h"
#include "tools/vantroctl/text/display_text.h"
#include "tools/vantroctl/text/node_ref.h"

namespace vantro::ctl {
namespace {

constexpr const char *known_keys[] = {
    VANTRO_KEY_TITLE,
    VANTRO_KEY_ARTIST,
    VANTRO_KEY_ALBUM,
    VANTRO_KEY_ALBUM_ARTIST,
    VANTRO_KEY_COMPOSER,
    VANTRO_KEY_CONDUCTOR,
    VANTRO_KEY_GENRE,
    VANTRO_KEY_YEAR,
    VANTRO_KEY_DISC,
    VANTRO_KEY_DISC_TOTAL,
    VANTRO_KEY_TRACK,
    VANTRO_KEY_TRACK_TOTAL,
    VANTRO_KEY_COMMENT,
    VANTRO_KEY_COPYRIGHT,
    VANTRO_KEY_BPM,
    VANTRO_KEY_COMPILATION,
    VANTRO_KEY_REPLAYGAIN_TRACK_GAIN,
    VANTRO_KEY_REPLAYGAIN_TRACK_PEAK,
    VANTRO_KEY_REPLAYGAIN_ALBUM_GAIN,
    VANTRO_KEY_REPLAYGAIN_ALBUM_PEAK,
    VANTRO_KEY_DURATION,
    VANTRO_KEY_BIT_RATE,
    VANTRO_KEY_SAMPLE_RATE,
    VANTRO_KEY_CHANNELS,
    VANTRO_KEY_CODEC,
    VANTRO_KEY_PATH,
    VANTRO_KEY_START,
    VANTRO_KEY_SIZE,
    VANTRO_KEY_MODIFIED,
    VANTRO_KEY_ARTWORK,
    VANTRO_KEY_LYRICS, // Last, because they are long.
};

// A foreign text, cut to fit an error of one line.
std::string shortened(std::string_view clean) {
    return clip_text(clean, 80);
}

// A block of records that a query returned.
template <class Record, void (*release)(Record *, int)>
struct Records {
    Record *first = nullptr;
    int count = 0;

    Records() = default;
    Records(const Records &) = delete;
    Records &operator=(const Records &) = delete;
    ~Records() { release(first, count); }

    const Record *begin() const { return first; }
    const Record *end() const { return first ? first + count : first; }
};

using NodeRecords = Records<MediaNode, vantro_free_media_nodes>;

// The values of those keys that the node has. @return the service's reason for refusing, or 0.
int32_t ask_values(Client &client, const Place &place, const std::vector<std::string> &keys,
                   Values &values) {
    std::vector<const char *> wanted;
    wanted.reserve(keys.size() + 1);
    for (const std::string &key : keys) {
        wanted.push_back(key.c_str());
    }
    wanted.push_back(nullptr);
    std::vector<char *> found(keys.size(), nullptr);
    const int32_t reason = client.ask("info", [&](VantroHandle *handle) {
        return vantro_get_extended_metadata(handle, place.source, place.id.c_str(), wanted.data(),
                                            found.data());
    });
    for (size_t i = 0; reason == 0 && i < keys.size(); ++i) {
        values.emplace_back(keys[i],
                            found[i] ? std::optional<std::string>(found[i]) : std::nullopt);
        std::free(found[i]);
    }
    return reason;
}

// The record's value for a key. Every service has the record, but not every service knows the keys.
std::string record_value(const Metadata &record, std::string_view key) {
    const struct {
        std::string_view key;
        const char *text;
        int32_t number;
    } fields[] = {
        {VANTRO_KEY_TITLE, record.title, 0},
        {VANTRO_KEY_ARTIST, record.artist, 0},
        {VANTRO_KEY_ALBUM, record.album, 0},
        {VANTRO_KEY_GENRE, record.genre, 0},
        {VANTRO_KEY_YEAR, record.year, 0},
        {VANTRO_KEY_ARTWORK, record.artwork, 0},
        {VANTRO_KEY_DISC, nullptr, record.disc},
        {VANTRO_KEY_TRACK, nullptr, record.track},
        {VANTRO_KEY_DURATION, nullptr, record.duration},
    };
    for (const auto &field : fields) {
        if (field.key == key) {
            return field.number > 0 ? fmt::format("{}", field.number) : text_of(field.text);
        }
    }
    return {};
}

std::optional<Source> find_source(Client &client, int32_t id) {
    const std::vector<Source> sources = get_sources(client);
    const auto source = std::find_if(sources.begin(), sources.end(),
                                     [id](const Source &each) { return each.id == id; });
    return source != sources.end() ? std::optional(*source) : std::nullopt;
}

// The addition to an error if the missing songs may still be found.
std::string if_scanning(const Source &source) {
    return source.status == VANTRO_SOURCE_SCANNING
               ? fmt::format("; source {} is still being scanned, try again later", source.id)
               : "";
}

// Throws the reason for which a query about a place failed. @param index of the requested song.
[[noreturn]] void fail_at(Client &client, const std::string &verb, const Place &place,
                          int32_t reason, int32_t index = 0) {
    if (reason != ENOENT && reason != ENODATA && reason != ERANGE) {
        throw refusal(verb, reason);
    }
    const std::optional<Source> source = find_source(client, place.source);
    if (!source) {
        throw Failure(Outcome::not_found,
                      fmt::format("no source {}: vantroctl sources lists them", place.source));
    }
    const std::string node = shortened(ref_text(place.source, place.id));
    if (reason == ENODATA) {
        throw Failure(Outcome::not_found,
                      fmt::format("no songs in {}{}", node, if_scanning(*source)));
    }
    if (reason == ERANGE) {
        throw Failure(Outcome::not_found,
                      fmt::format("no song {}: there are fewer in {}{}", int64_t{index} + 1, node,
                                  if_scanning(*source)));
    }
    throw Failure(Outcome::not_found,
                  fmt::format("no node {} in source {} ({}): vantroctl browse {}: shows its top",
                              node, source->id, shortened(clean_text(source->name)), source->id));
}

// The first of their sources that is being scanned.
std::optional<int32_t> find_scanning(Client &client, const std::vector<Place> &places) {
    const std::vector<Source> sources = get_sources(client);
    for (const Place &place : places) {
        for (const Source &source : sources) {
            if (source.id == place.source && source.status == VANTRO_SOURCE_SCANNING) {
                return source.id;
            }
        }
    }
    return std::nullopt;
}

// Several nodes in the form of the service's requests.
std::string node_lines(const std::vector<Place> &places) {
    std::string lines;
    for (const Place &place : places) {
        lines += fmt::format("{}:{}\n", place.source, place.id);
    }
    return lines;
}

// Throws the reason for which a session was refused. The service does not say which of several
// nodes is the cause.
[[noreturn]] void explain_refused(Client &client, const NewSession &wanted, int32_t reason) {
    if (wanted.places.size() == 1 && reason != EMSGSIZE) {
        fail_at(client, wanted.verb, wanted.places.front(), reason, wanted.index);
    }
    if (reason == ENOENT) {
        for (const Place &place : wanted.places) {
            browse_page(client, place, 0, 1);
        }
    }
    if (reason == ENODATA) {
        throw Failure(Outcome::not_found, "no songs in any of them");
    }
    if (reason == EMSGSIZE) {
        throw Failure(Outcome::failed, fmt::format("{} refused: a session has at most {} songs",
                                                   wanted.verb, VANTRO_TRKSESSION_SONGS_MAX));
    }
    if (reason == ERANGE) {
        throw Failure(Outcome::not_found, fmt::format("no song {}: there are fewer in them",
                                                      int64_t{wanted.index} + 1));
    }
    throw refusal(wanted.verb, reason);
}

// One page of a list, with metadata if the service offers them.
struct NodePage {
    NodeRecords nodes;
    Records<Metadata, vantro_free_metadata> metadata;
};

// @param plain, described the same list without and with metadata. @return the result of
//     Client::ask().
int32_t ask_page(Client &client, const std::string &verb, int32_t count, NodePage &page,
                 const Client::Call &described, const Client::Call &plain) {
    page.nodes.count = count;
    const int32_t reason = client.ask(verb, described);
    if (reason == 0) {
        page.metadata.count = page.nodes.count;
        return 0;
    }
    return client.ask(verb, plain);
}

std::vector<Node> nodes_of(const NodePage &page) {
    std::vector<Node> nodes;
    for (const MediaNode &record : page.nodes) {
        Node node{record.ms_id, text_of(record.id), text_of(record.name), record.type,
                  record.count};
        if (page.metadata.first) {
            const Metadata &known = page.metadata.first[nodes.size()];
            const bool is_song = node.type == VANTRO_NODE_SONG;
            node.artist = is_song || node.type == VANTRO_NODE_ALBUM ? text_of(known.artist) : "";
            node.album = is_song ? text_of(known.album) : "";
            node.duration_ms = is_song ? known.duration : 0;
            node.genre = is_song ? text_of(known.genre) : "";
            node.year = is_song ? text_of(known.year) : "";
            node.disc = is_song ? known.disc : 0;
            node.number = is_song ? known.track : 0;
        }
        nodes.push_back(std::move(node));
    }
    return nodes;
}

} // namespace

std::vector<Source> get_sources(Client &client) {
    Records<MediaSource, vantro_free_media_sources> records;
    client.carry_out("sources", [&](VantroHandle *handle) {
        return vantro_get_media_sources(handle, &records.first, &records.count);
    });
    std::vector<Source> sources;
    for (const MediaSource &record : records) {
        sources.push_back(source_of(record));
    }
    return sources;
}

std::vector<Node> browse_page(Client &client, const Place &place, int32_t offset, int32_t count) {
    NodePage page;
    const int32_t reason = ask_page(
        client, "browse", count, page,
        [&](VantroHandle *handle) {
            return vantro_browse_metadata(handle, place.source, place.id.c_str(), offset,
                                          &page.nodes.count, &page.nodes.first,
                                          &page.metadata.first);
        },
        [&](VantroHandle *handle) {
            return vantro_browse(handle, place.source, place.id.c_str(), offset, &page.nodes.count,
                                 &page.nodes.first);
        });
    if (reason != 0) {
        fail_at(client, "browse", place, reason);
    }
    return nodes_of(page);
}

void rescan_place(Client &client, const Place &place) {
    const int32_t reason = client.ask("rescan", [&](VantroHandle *handle) {
        return vantro_rescan_node(handle, place.source, place.id.c_str());
    });
    if (reason != 0) {
        fail_at(client, "rescan", place, reason);
    }
}

std::vector<Node> search_page(Client &client, int32_t source, const std::string &filter,
                              const std::string &term, int32_t offset, int32_t count) {
    NodePage page;
    const int32_t reason = ask_page(
        client, "search", count, page,
        [&](VantroHandle *handle) {
            return vantro_search_metadata(handle, source, filter.c_str(), term.c_str(), offset,
                                          &page.nodes.count, &page.nodes.first,
                                          &page.metadata.first);
        },
        [&](VantroHandle *handle) {
            return vantro_search(handle, source, filter.c_str(), term.c_str(), offset,
                                 &page.nodes.count, &page.nodes.first);
        });
    if (reason != 0) {
        fail_at(client, "search", {source, ""}, reason);
    }
    return nodes_of(page);
}

std::vector<Node> tracks_page(Client &client, uint64_t session, int32_t offset, int32_t count) {
    NodePage page;
    const int32_t reason = ask_page(
        client, "tracks", count, page,
        [&](VantroHandle *handle) {
            return vantro_get_trksession_tracks_metadata(handle, session, offset, &page.nodes.count,
                                                         &page.nodes.first, &page.metadata.first);
        },
        [&](VantroHandle *handle) {
            return vantro_get_trksession_tracks(handle, session, offset, &page.nodes.count,
                                                &page.nodes.first);
        });
    if (reason == ENOENT) {
        throw Failure(Outcome::not_found, "the session has ended in the meantime; try again");
    }
    if (reason != 0) {
        throw refusal("tracks", reason);
    }
    return nodes_of(page);
}

Values get_values(Client &client, const Place &place, const std::vector<std::string> &keys) {
    if (place.id.empty()) { // The library does not send such a query, and the top has no values.
        browse_page(client, place, 0, 1);
        Values values;
        for (const std::string &key : keys) {
            values.emplace_back(key, std::nullopt);
        }
        return values;
    }
    Values values;
    if (const int32_t reason = ask_values(client, place, keys, values); reason != 0) {
        fail_at(client, "info", place, reason);
    }
    return values;
}

Values get_known_values(Client &client, const Place &place) {
    const std::vector<std::string> keys(std::begin(known_keys), std::end(known_keys));
    if (place.id.empty()) {
        get_values(client, place, keys);
        return {};
    }
    // A service may offer only one of the two: values of keys, or the record.
    Values values;
    const int32_t reason = ask_values(client, place, keys, values);
    Records<Metadata, vantro_free_metadata> record;
    record.count = 1;
    const int32_t record_reason = client.ask("info", [&](VantroHandle *handle) {
        return vantro_get_metadata(handle, place.source, place.id.c_str(), &record.first);
    });
    if (reason != 0 && record_reason != 0) {
        fail_at(client, "info", place, reason);
    }
    Values known;
    for (size_t i = 0; i < keys.size(); ++i) {
        std::string value = reason == 0 ? values[i].second.value_or("") : "";
        if (value.empty() && record.first) {
            value = record_value(*record.first, keys[i]);
        }
        if (!value.empty()) {
            known.emplace_back(keys[i], value);
        }
    }
    return known;
}

LoadedSession make_session(Client &client, const NewSession &wanted) {
    const std::optional<SessionStatus> before = client.session();
    // Checked before the session is made: songs that a scan finds later are not in it.
    const std::optional<int32_t> scanning = find_scanning(client, wanted.places);
    const bool several = wanted.places.size() > 1;
    const int32_t source = several ? 0 : wanted.places.front().source;
    const std::string nodes = several ? node_lines(wanted.places) : wanted.places.front().id;
    uint64_t session = 0;
    const int32_t reason = client.ask(wanted.verb, [&](VantroHandle *handle) {
        return vantro_create_trksession(handle, source, nodes.c_str(), &wanted.index, wanted.start,
                                        &session);
    });
    if (reason == ENOSPC) {
        throw Failure(Outcome::failed,
                      fmt::format("{} refused: the player keeps no more track sessions; those that "
                                  "other clients have loaded must end first",
                                  wanted.verb));
    }
    if (reason != 0) {
        explain_refused(client, wanted, reason);
    }
    const bool replaced =
        wanted.start == VANTRO_TRKSESSION_LOAD || wanted.start == VANTRO_TRKSESSION_PLAY;
    if (replaced && before && before->type == VANTRO_TRKSESSION_NODE) {
        end_session(client, wanted.verb, static_cast<uint64_t>(before->id));
    }
    return {session, scanning};
}

// If the session has ended meanwhile, that is not a failure.
void end_session(Client &client, const std::string &verb, uint64_t session) {
    client.ask(verb, [session](VantroHandle *handle) {
        return vantro_destroy_trksession(handle, session);
    });
}

void jump_to(Client &client, int32_t index) {
    const int32_t reason =
        client.ask("jump", [=](VantroHandle *handle) { return vantro_jump(handle, index); });
    if (reason == 0) {
        return;
    }
    if (reason == ERANGE || reason == ENODATA) {
        const SessionStatus session = client.need_session();
        throw Failure(Outcome::not_found, fmt::format("no track {}: the session has {}",
                                                      int64_t{index} + 1, session.length));
    }
    throw refusal("jump", reason);
}

void play(Client &client) {
    const int32_t reason = client.ask("play", vantro_play);
    if (reason == ENODATA) {
        std::string scanning;
        for (const Source &source : get_sources(client)) {
            scanning = scanning.empty() ? if_scanning(source) : scanning;
        }
        throw Failure(Outcome::not_found, "nothing to play: no source has songs" + scanning);
    }
    if (reason != 0) {
        throw refusal("play", reason);
    }
}

} // namespace vantro::ctl
