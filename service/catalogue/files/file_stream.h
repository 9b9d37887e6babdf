// A file for the tag readers: read-only, bounded, never waiting.
#ifndef VANTRO_SERVICE_CATALOGUE_FILES_FILE_STREAM_H
#define VANTRO_SERVICE_CATALOGUE_FILES_FILE_STREAM_H

#include <optional>
#include <string>
#include <sys/stat.h>

#include <taglib/tiostream.h>

#include "service/catalogue/files/music_root.h"
#include "service/error.h"

namespace vantro::service::catalogue {

class FileStream : public TagLib::IOStream {
  public:
    // Most bytes that may be read from one file. Tag readers read as much as the file's own length
    // fields state, several times over. The covers and lyrics of real files fit many times.
    static constexpr long budget_bytes = 64l * 1024 * 1024;

    // The file at `path` below the root. `name` is the name under which it was found, perhaps that
    // of a link; its ending determines the format.
    FileStream(const MusicRoot &root, const std::string &path, std::string name);
    ~FileStream() override;
    FileStream(const FileStream &) = delete;
    FileStream &operator=(const FileStream &) = delete;

    // The error for which the file cannot be opened, or for which a read has failed.
    const std::optional<Error> &failure() const { return failure_; }
    const struct stat &status() const { return status_; }

    // Goes back to the beginning. Without its name TagLib recognises the format by the content: in
    // many collections some files have the ending of another format.
    void rewind(bool with_name);

    TagLib::FileName name() const override { return named_ ? name_.c_str() : ""; }
    TagLib::ByteVector readBlock(unsigned long length) override;
    void seek(long offset, Position from = Beginning) override;
    long tell() const override { return at_; }
    long length() override { return static_cast<long>(status_.st_size); }
    bool readOnly() const override { return true; }
    bool isOpen() const override { return !failure_; }

    void writeBlock(const TagLib::ByteVector &) override {}
    void insert(const TagLib::ByteVector &, unsigned long, unsigned long) override {}
    void removeBlock(unsigned long, unsigned long) override {}
    void truncate(long) override {}

  private:
    size_t read_at(char *bytes, size_t size, long offset);

    const std::string name_;
    int descriptor_ = -1;
    std::optional<Error> failure_;
    bool named_ = true;
    struct stat status_ = {};
    long at_ = 0;
    long left_ = budget_bytes;
    long window_at_ = 0; // the offset of window_ in the file
    std::string window_; // tag readers take a few bytes at a time
};

} // namespace vantro::service::catalogue

#endif
