#include "service/sound/mpv_files.h"

#include <cerrno>
#include <charconv>
#include <memory>
#include <new>
#include <string_view>

#include <sys/stat.h>
#include <unistd.h>

#include <vantro/catalogue.h>

namespace vantro::service::sound {

namespace {

constexpr const char *protocol = "vantro";
constexpr std::string_view prefix = "vantro://";

} // namespace

struct MpvFiles::File {
    File(MpvFiles &all, int64_t number) : files(all), song(number) {}
    ~File() {
        if (descriptor >= 0) {
            close(descriptor);
        }
    }
    File(const File &) = delete;
    File &operator=(const File &) = delete;

    static int64_t read(void *cookie, char *buffer, uint64_t bytes) {
        const File &file = *static_cast<File *>(cookie);
        const ssize_t got = ::read(file.descriptor, buffer, bytes);
        if (got < 0) {
            file.files.note(file.song, Error(Error::Origin::music, errno));
        }
        return got;
    }
    static int64_t seek(void *cookie, int64_t offset) {
        const off_t reached = lseek(static_cast<File *>(cookie)->descriptor, offset, SEEK_SET);
        return reached < 0 ? int64_t{MPV_ERROR_GENERIC} : int64_t{reached};
    }
    static int64_t size(void *cookie) {
        struct stat status = {};
        const bool known = fstat(static_cast<File *>(cookie)->descriptor, &status) == 0;
        return known ? int64_t{status.st_size} : int64_t{MPV_ERROR_GENERIC};
    }
    static void end(void *cookie) { delete static_cast<File *>(cookie); }

    MpvFiles &files;
    const int64_t song;
    int descriptor = -1;
};

void MpvFiles::serve(const MpvLibrary &mpv, mpv_handle *core) {
    mpv.stream_cb_add_ro(core, protocol, this, open);
}

std::string MpvFiles::name_of(int64_t song) {
    return std::string(prefix) + std::to_string(song);
}

// mpv calls this, so no exception may leave it.
int MpvFiles::open(void *files, char *name, mpv_stream_cb_info *info) noexcept {
    MpvFiles &all = *static_cast<MpvFiles *>(files);
    const std::string_view number = std::string_view(name).substr(prefix.size());
    int64_t song = 0;
    const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), song);
    if (error != std::errc() || end != number.data() + number.size()) {
        return MPV_ERROR_LOADING_FAILED;
    }
    std::unique_ptr<File> file(new (std::nothrow) File(all, song));
    if (!file) {
        all.note(song, Error(Error::Origin::music, ENOMEM));
        return MPV_ERROR_NOMEM;
    }
    file->descriptor = all.listener_.open_song(song);
    if (file->descriptor < 0) {
        all.note(song, Error(Error::Origin::music, errno));
        return MPV_ERROR_LOADING_FAILED;
    }
    struct stat status = {};
    if (fstat(file->descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
        all.note(song, Error(Error::Origin::music, EACCES));
        return MPV_ERROR_LOADING_FAILED;
    }
    *info = {file.release(), File::read, File::seek, File::size, File::end, nullptr};
    return 0;
}

void MpvFiles::note(int64_t song, const Error &error) {
    const MutexLock guard(mutex_);
    failed_song_ = song;
    failure_ = track_error(error);
}

int32_t MpvFiles::error_of(int64_t song) {
    const MutexLock guard(mutex_);
    return song == failed_song_ ? failure_ : 0;
}

void MpvFiles::forget(int64_t song) {
    const MutexLock guard(mutex_);
    if (song == failed_song_) {
        failure_ = 0;
    }
}

} // namespace vantro::service::sound
