// The part of Answers that reads the catalogue.
#include "service/requests/answers.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <iterator>
#include <optional>

#include <vantro/extras.h>
#include <vantro/protocol.h>

namespace vantro::service::requests {

namespace {

// The number of a source's songs that are packed before the first request: about a megabyte.
// Applications that list more songs are slow in any case.
constexpr int32_t prepared_max = 20'000;

} // namespace

// Ids are never reused, so without an open player the id alone identifies a session.
int Answers::session_songs(const Call &call, catalogue::Range range,
                           std::vector<catalogue::SongId> &ids) {
    const Request &request = call.request;
    playback::SessionPtr session = call.player ? call.player->session(request.tsid) : nullptr;
    for (auto each = players_.begin(); !call.player && !session && each != players_.end(); ++each) {
        session = each->session(request.tsid);
    }
    if (!session) {
        return ENOENT;
    }

    const std::vector<catalogue::QueuedSong> &songs = session->songs;
    const auto first = std::min(static_cast<size_t>(std::max(range.offset, 0)), songs.size());
    size_t count = songs.size() - first;
    if (range.count > 0) {
        count = std::min(count, static_cast<size_t>(range.count));
    }
    ids.resize(count);
    std::transform(songs.data() + first, songs.data() + first + count, ids.begin(),
                   [](const catalogue::QueuedSong &song) { return song.id; });
    return 0;
}

int Answers::give_session_tracks(const Call &call, catalogue::Range range,
                                 catalogue::NodeSink &nodes) {
    std::vector<catalogue::SongId> ids;
    const int result = session_songs(call, range, ids);
    return result == 0 ? catalogue_.song_nodes(ids.data(), ids.size(), nodes) : result;
}

int Answers::give_listing(const Call &call, catalogue::Range range, catalogue::NodeSink &nodes) {
    const Request &request = call.request;
    return catalogue_.browse(request.source, request.node, range, nodes);
}

int Answers::give_search(const Call &call, catalogue::Range range, catalogue::NodeSink &nodes) {
    const Request &request = call.request;
    return catalogue_.search(request.source, request.filter, request.term, range, nodes);
}

int Answers::append_list(const Call &call, Give give) {
    NodePacker nodes(call.answer, packed_lists_);
    const int result = (this->*give)(call, call.request.range, nodes);
    return result == 0 ? nodes.finish() : result;
}

void Answers::prepare_songs(int32_t source) noexcept {
    try {
        Bytes room;
        NodePacker nodes(room, packed_lists_);
        if (catalogue_.browse(source, "songs", {0, prepared_max}, nodes) == 0) {
            nodes.finish(); // a list that is too long is not cached
        }
    } catch (const std::exception &) {
        // The list is made at the first request.
    }
}

// One page at most, so that it takes no more memory and time than other requests.
int Answers::append_described(const Call &call, Give give) {
    catalogue::Range page = call.request.range;
    page.count = page.count <= 0 ? VANTRO_METADATA_PAGE_MAX
                                 : std::min<int32_t>(page.count, VANTRO_METADATA_PAGE_MAX);
    NodeCollector listed;
    if (const int result = (this->*give)(call, page, listed); result != 0) {
        return result;
    }
    const std::vector<catalogue::Node> &nodes = listed.nodes;
    std::vector<catalogue::SongMetadata> metadata;
    if (const int result = catalogue_.describe(nodes, metadata); result != 0) {
        return result;
    }
    Bytes &answer = call.answer;
    append(answer, static_cast<int32_t>(nodes.size()));
    const size_t length = answer.size();
    append(answer, uint32_t{0});
    const size_t records = answer.size();
    if (const int result = append_nodes(answer, nodes.data(), nodes.size()); result != 0) {
        return result;
    }
    const auto bytes = static_cast<uint32_t>(answer.size() - records);
    std::memcpy(answer.data() + length, &bytes, sizeof bytes);
    return append_metadata(answer, metadata.data(), metadata.size());
}

int Answers::append_listing(const Call &call) {
    return append_list(call, &Answers::give_listing);
}

int Answers::append_search(const Call &call) {
    return append_list(call, &Answers::give_search);
}

int Answers::append_session_tracks(const Call &call) {
    return append_list(call, &Answers::give_session_tracks);
}

int Answers::append_described_listing(const Call &call) {
    return append_described(call, &Answers::give_listing);
}

int Answers::append_described_search(const Call &call) {
    return append_described(call, &Answers::give_search);
}

int Answers::append_described_tracks(const Call &call) {
    return append_described(call, &Answers::give_session_tracks);
}

int Answers::save_playlist(const Call &call) {
    const int32_t flags = call.request.value;
    if ((flags & ~VANTRO_PLAYLIST_REPLACE) != 0) {
        return ERANGE;
    }
    const playback::SessionPtr session = call.player->snapshot().session;
    if (!session) {
        return ENODATA;
    }
    std::vector<catalogue::SongId> ids;
    ids.reserve(session->songs.size());
    std::transform(session->songs.begin(), session->songs.end(), std::back_inserter(ids),
                   [](const catalogue::QueuedSong &song) { return song.id; });
    int32_t kept = 0;
    const int result = catalogue_.save_playlist(call.request.name, ids,
                                                (flags & VANTRO_PLAYLIST_REPLACE) != 0, kept);
    append(call.answer, kept);
    return result;
}

int Answers::append_metadata_of(const Call &call) {
    std::optional<catalogue::SongMetadata> metadata;
    const int result = catalogue_.metadata(call.request.source, call.request.node, metadata);
    return result == 0 && metadata ? append_metadata(call.answer, &*metadata, 1) : result;
}

int Answers::append_extended_metadata(const Call &call) {
    std::vector<std::string> values;
    const Request &request = call.request;
    const int result =
        catalogue_.extended_metadata(request.source, request.node, request.keys, values);
    return result == 0 ? append_texts(call.answer, values) : result;
}

} // namespace vantro::service::requests
