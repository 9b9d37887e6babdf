#include "service/playback/node_list.h"

#include <cerrno>
#include <charconv>

#include <vantro/catalogue.h>

namespace vantro::service::playback {

namespace {

// Removes the source from the start of a line and returns it; 0 if there is none.
int32_t take_source(std::string_view &line) {
    int32_t source = 0;
    const char *const end = line.data() + line.size();
    const auto [colon, error] = std::from_chars(line.data(), end, source);
    if (error != std::errc() || colon == end || *colon != ':' || source <= 0) {
        return 0;
    }
    line.remove_prefix(static_cast<size_t>(colon - line.data()) + 1);
    return source;
}

} // namespace

int songs_of_nodes(catalogue::Catalogue &catalogue, int32_t source, std::string_view nodes,
                   std::vector<catalogue::QueuedSong> &songs) {
    const bool several = nodes.find('\n') != nodes.npos;
    for (bool more = true; more;) {
        const size_t length = nodes.find('\n');
        std::string_view line = nodes.substr(0, length);
        // The last line may have a newline too.
        more = length != nodes.npos && length + 1 < nodes.size();
        nodes.remove_prefix(more ? length + 1 : nodes.size());
        const int32_t from = source != 0 ? source : take_source(line);
        if (from == 0 || (source != 0 && several && line.empty())) {
            return EINVAL;
        }
        if (const int result = catalogue.songs(from, line, songs); result != 0) {
            return result;
        }
        // A short line can name all songs of the catalogue, and a request has room for many lines.
        if (several && songs.size() > VANTRO_TRKSESSION_SONGS_MAX) {
            return EMSGSIZE;
        }
    }
    return songs.empty() ? ENODATA : 0;
}

} // namespace vantro::service::playback
