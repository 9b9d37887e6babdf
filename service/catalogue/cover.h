// Which picture is a cover.
//
// - Of a song: the picture in its file (picture_in() says which, if there are several), else the
//   cover of its folder.
// - Of a folder's songs: the picture in the folder that is named best, as FolderCover finds it
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

// How a picture in a folder is named, by what counts first if there are several: as its cover
// (cover, folder, front, albumcover, album, in this order and in any case), or like any other.
// Nothing for what has no ending of a picture.
std::optional<int> picture_rank(std::string_view name);
inline constexpr int plain_picture_rank = 5; // counts where it is the only picture

// Chooses the cover of a folder from the files in it.
class FolderCover {
  public:
    struct Picture {
        std::string name;
        std::string path; // below the source; of a link, where it leads
        FileStamp stamp;
    };

    // A file in the folder, whatever it is called.
    void offer(const std::string &name, const std::string &path, FileStamp stamp);

    // Null if there is no picture, or none that is named better than the others.
    const Picture *chosen() const;

  private:
    Picture best_; // of equals the first by name
    int rank_ = plain_picture_rank + 1;
    bool several_ = false; // of the rank of `best_`
};

// The song whose cover an album or a folder with these entries has; 0 for none. All of its songs
// have one cover, as far as a list can show.
SongId cover_song(const List &entries);

} // namespace vantro::service::catalogue

#endif
