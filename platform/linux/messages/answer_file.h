// The reusable memory file for a lane's long answers.
//
// A new file for each long answer costs more than copying the answer twice: its pages are made,
// filled and freed. So from its second long answer on a lane has one file, which the client gets
// once. The server writes each answer through its mapping; the client reads it through its
// descriptor, before it sends anything else on this lane.
//
// The file is sealed: its length cannot change, and only the server's mapping can write it. The
// client copies the bytes once, and uses only the copy. A file belongs to one lane of one client,
// so that no client sees another's answers. The size of all files together is bounded; if there can
// be no file, an answer is sent in a separate sealed file.
#ifndef VANTRO_PLATFORM_LINUX_MESSAGES_ANSWER_FILE_H
#define VANTRO_PLATFORM_LINUX_MESSAGES_ANSWER_FILE_H

#include <cstddef>
#include <memory>

#include "platform/linux/base/mapping.h"
#include "platform/linux/base/unique_fd.h"

struct iovec;

namespace vantro::platform {

class AnswerFile {
  public:
    // Bytes of the longest answer in such a file: 1 MiB and its headers. The second limit is for
    // all files of the process together.
    static constexpr size_t bytes_max = (1024 + 64) * 1024;
    static constexpr size_t bytes_of_all = 8 * bytes_max;

    // Returns null if the limit of the process is reached, or the kernel refuses.
    static std::unique_ptr<AnswerFile> make(size_t length);
    ~AnswerFile();
    AnswerFile(const AnswerFile &) = delete;
    AnswerFile &operator=(const AnswerFile &) = delete;

    bool fits(size_t length) const { return length <= bytes_; }
    void write(const struct iovec *parts, int count, size_t length);

    // The descriptor for the client; empty from the second call on.
    UniqueFd take_descriptor() { return std::move(file_); }

  private:
    explicit AnswerFile(size_t bytes) : bytes_(bytes) {}
    bool prepare();

    const size_t bytes_;
    UniqueFd file_;
    Mapping mapping_;
};

// Checks whether a client may keep reading this file. `length` receives its length, which cannot
// change.
// @return the result of check_sealed_file().
int check_answer_file(int file, size_t &length);

} // namespace vantro::platform

#endif
