// The nodes from which a request makes a track session.
#ifndef VANTRO_SERVICE_PLAYBACK_NODE_LIST_H
#define VANTRO_SERVICE_PLAYBACK_NODE_LIST_H

#include <cstdint>
#include <string_view>
#include <vector>

#include "service/catalogue/catalogue.h"

namespace vantro::service::playback {

// Adds the songs of one node, or of several, one a line. If `source` is 0, each line names its
// source too, as in "1:ID". Returns 0; EINVAL if one of several lines is empty, or lacks a required
// source; EMSGSIZE if several nodes have more than VANTRO_TRKSESSION_SONGS_MAX songs; ENODATA if
// there are no songs; or the result of Catalogue::songs() for the first node that it refuses.
int songs_of_nodes(catalogue::Catalogue &catalogue, int32_t source, std::string_view nodes,
                   std::vector<catalogue::QueuedSong> &songs);

} // namespace vantro::service::playback

#endif
