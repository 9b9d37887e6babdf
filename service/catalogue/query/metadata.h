// The metadata of one node.
#ifndef VANTRO_SERVICE_CATALOGUE_QUERY_METADATA_H
#define VANTRO_SERVICE_CATALOGUE_QUERY_METADATA_H

#include <string>
#include <string_view>
#include <vector>

#include "service/catalogue/catalogue.h"
#include "service/catalogue/database/database.h"
#include "service/catalogue/files/artwork_folder.h"
#include "service/catalogue/query/source_browser.h"

namespace vantro::service::catalogue {

// Most bytes of values in one answer. All values of one song fit, with its lyrics. A query that
// requests the lyrics ten thousand times gets no more than this.
inline constexpr size_t extended_bytes_max = 1024 * 1024;

// False if the song is gone.
bool read_metadata(Database &database, const ArtworkFolder &artwork, SongId song,
                   SongMetadata &metadata);

// The metadata of a node that is not a song: its name, under the key of its kind, and its cover.
SongMetadata describe(Database &database, const ArtworkFolder &artwork, SourceBrowser &browser,
                      Place place);

// One value for each key. `root` is the directory of the song's source.
std::vector<std::string> read_extended(Database &database, const ArtworkFolder &artwork,
                                       std::string_view root, SongId song,
                                       const std::vector<std::string_view> &keys);

// The path of a song's file below its source; empty if the song is gone.
std::string path_of(Database &database, SongId song);

// The part of its file that a song is.
SongPart part_of(Database &database, SongId song);

// The same as read_extended() for a node that is not a song, from the result of describe().
std::vector<std::string> extended_of(const SongMetadata &metadata,
                                     const std::vector<std::string_view> &keys);

} // namespace vantro::service::catalogue

#endif
