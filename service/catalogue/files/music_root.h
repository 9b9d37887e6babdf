// A directory of music, held open. All files below it are opened relative to its descriptor: if a
// folder is replaced by a link during a scan, the link cannot lead out of the directory.
#ifndef VANTRO_SERVICE_CATALOGUE_FILES_MUSIC_ROOT_H
#define VANTRO_SERVICE_CATALOGUE_FILES_MUSIC_ROOT_H

#include <optional>
#include <string>

namespace vantro::service::catalogue {

// Opens `path` below a directory, "" for the directory itself, and follows no link on the way.
// Returns a descriptor, or -1 and errno, like open(). walk_below() does the same without openat2,
// which kernels before 5.6 and some sandboxes do not have.
int open_below(int directory, const std::string &path, int flags);
int walk_below(int directory, const std::string &path, int flags);

class MusicRoot {
  public:
    // Throws an Error if the directory cannot be opened. It may itself be a link.
    explicit MusicRoot(const std::string &path);
    ~MusicRoot();
    MusicRoot(const MusicRoot &) = delete;
    MusicRoot &operator=(const MusicRoot &) = delete;

    int descriptor() const { return descriptor_; }

    // Opens like open_below().
    int open(const std::string &path, int flags) const;

    // Opens a file for reading, without waiting for the writer of a named pipe. If the file is a
    // link, its target is opened, provided that it lies below the directory as well.
    int open_file(const std::string &path) const;

    // The path below the directory that the link at `path` leads to. Nothing, and errno, if there
    // is no such file; EXDEV if the link leads out of the directory.
    std::optional<std::string> target_of(const std::string &path) const;

  private:
    const std::string path_;
    int descriptor_ = -1;
};

} // namespace vantro::service::catalogue

#endif
