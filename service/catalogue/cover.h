// Rules that decide which picture is a cover.
//
// - Of a song: the picture in its file (if there are several, picture_in() of files/formats.h
//   chooses one), else the cover of its folder. query/metadata.cpp tries them in this order.
// - Of a folder's songs: the picture in the folder with the best name, which FolderCover finds
//   during the scan.
// - Of an album or a folder: that of its last song.
#ifndef VANTRO_SERVICE_CATALOGUE_COVER_H
#define VANTRO_SERVICE_CATALOGUE_COVER_H

#include <optional>
#include <string>
#include <string_view>

#include "service/catalogue/catalogue.h"
#include "service/catalogue/database/database.h"
#include "service/catalogue/files/artwork_folder.h"
#include "service/catalogue/files/catalogued_song.h"
#include "service/catalogue/query/list_cache.h"

namespace vantro::service::catalogue {

// The rank of a picture's name; the lowest rank counts. The names of covers (cover, folder, front,
// albumcover, album, in any case) have ranks in this order; other pictures come after them. Nothing
// for a name without the ending of a picture.
std::optional<int> picture_rank(std::string_view name);
inline constexpr int plain_picture_rank = 5; // counts if it is the only picture

// Chooses the cover of a folder from the files in it.
class FolderCover {
  public:
    struct Picture {
        std::string name;
        std::string path; // below the source; for a link, that of its target
        FileStamp stamp;
    };

    // Offers a file of the folder, with any name.
    void offer(const std::string &name, const std::string &path, FileStamp stamp);

    // Null if there is no picture, or if several share the best rank.
    const Picture *chosen() const;

  private:
    Picture best_; // of equals the first by name
    int rank_ = plain_picture_rank + 1;
    bool several_ = false; // several pictures have the rank of `best_`
};

// The song whose cover an album or a folder with these entries has; 0 for none. A list can show
// only one cover for all of the songs.
SongId cover_song(const List &entries);

} // namespace vantro::service::catalogue

#endif
