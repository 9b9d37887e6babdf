// The files that mpv plays: songs of the catalogue, and nothing else.
//
// mpv gets names of songs, never of files. MpvFiles opens every file for it through the listener,
// so a link that replaces a file leads no further than the catalogue allows.
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

    // Registers the files with a core. The core must end before this object.
    void serve(const MpvLibrary &mpv, mpv_handle *core);

    // The name by which mpv knows a song.
    static std::string name_of(int64_t song);

    // The VANTRO_ERROR_* for which a song could not be opened or read since forget(), or 0.
    int32_t error_of(int64_t song);
    void forget(int64_t song);

  private:
    struct File;
    static int open(void *files, char *name, mpv_stream_cb_info *info) noexcept;
    void note(int64_t song, const Error &error);

    Listener &listener_;
    Mutex mutex_;                                // mpv opens and reads on threads of its own
    int64_t failed_song_ GUARDED_BY(mutex_) = 0; // the song that failed last
    int32_t failure_ GUARDED_BY(mutex_) = 0;
};

} // namespace vantro::service::sound

#endif
