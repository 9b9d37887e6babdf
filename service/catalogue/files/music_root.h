// A directory of music, held open. Whatever lies below it is opened from here: a folder that is
// exchanged for a link while it is read leads nowhere, instead of out of the directory.
#ifndef VANTRO_SERVICE_CATALOGUE_FILES_MUSIC_ROOT_H
#define VANTRO_SERVICE_CATALOGUE_FILES_MUSIC_ROOT_H

#include <optional>
#include <string>

namespace vantro::service::catalogue {

// Opens what lies at `path` below a directory, "" for the directory itself, and follows no link on
// the way. Returns a descriptor, or -1 and errno. The second one does so without openat2, which
// kernels before 5.6 and some sandboxes do not have.
int open_below(int directory, const std::string &path, int flags);
int walk_below(int directory, const std::string &path, int flags);

class MusicRoot {
  public:
    // Throws std::system_error where the directory cannot be opened. It may itself be a link.
    explicit MusicRoot(const std::string &path);
    ~MusicRoot();
    MusicRoot(const MusicRoot &) = delete;
    MusicRoot &operator=(const MusicRoot &) = delete;

    int descriptor() const { return descriptor_; }

    // As open_below().
    int open(const std::string &path, int flags) const;

    // Opens a file for reading, without waiting for the writer of a named pipe. Where the file is
    // a link, what it leads to is opened if that lies below the directory as well.
    int open_file(const std::string &path) const;

    // The path below the directory that the link at `path` leads to. Nothing, and errno, where
    // there is none; EXDEV where the link leads out of the directory.
    std::optional<std::string> target_of(const std::string &path) const;

  private:
    const std::string path_;
    int descriptor_ = -1;
};

} // namespace vantro::service::catalogue

#endif
