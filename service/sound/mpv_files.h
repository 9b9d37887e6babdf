// The files that mpv plays: songs of the catalogue, and nothing else.
//
// mpv is given names of songs, never of files. Whatever it opens comes through here, from the
// listener, so a link that is put in a file's place leads no further than the catalogue lets it.
#ifndef VANTRO_SERVICE_SOUND_MPV_FILES_H
#define VANTRO_SERVICE_SOUND_MPV_FILES_H

#include <cstdint>
#include <string>

#include "common/locks.h"
#include "service/sound/mpv_library.h"
#include "service/sound/sound.h"

namespace vantro::service::sound {

class MpvFiles {
  public:
    // Borrows the listener.
    explicit MpvFiles(Listener &listener) : listener_(listener) {}
    MpvFiles(const MpvFiles &) = delete;
    MpvFiles &operator=(const MpvFiles &) = delete;

    // Makes them known to a core, which must end before this.
    void serve(const MpvLibrary &mpv, mpv_handle *core);

    // What a song goes by in mpv.
    static std::string name_of(int64_t song);

    // The VANTRO_ERROR_* for which a song could not be opened or read since forget(), or 0.
    int32_t error_of(int64_t song);
    void forget(int64_t song);

  private:
    struct File;
    static int open(void *files, char *name, mpv_stream_cb_info *info);
    void note(int64_t song, const Error &error);

    Listener &listener_;
    Mutex mutex_;                                // mpv opens and reads on threads of its own
    int64_t failed_song_ GUARDED_BY(mutex_) = 0; // the one that failed last
    int32_t failure_ GUARDED_BY(mutex_) = 0;
};

} // namespace vantro::service::sound

#endif
