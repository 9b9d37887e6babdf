// The state directory of a service, and the small files in it.
#ifndef VANTRO_SERVICE_CATALOGUE_STATE_DIRECTORY_H
#define VANTRO_SERVICE_CATALOGUE_STATE_DIRECTORY_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "common/locks.h"
#include "service/error.h"

namespace vantro::service::catalogue {

// Only one process at a time can own a state directory.
class StateDirectory {
  public:
    StateDirectory() = default;
    ~StateDirectory();
    StateDirectory(const StateDirectory &) = delete;
    StateDirectory &operator=(const StateDirectory &) = delete;

    // Takes the directory; makes it, with those permission bits, if it is missing. Returns an error
    // if it cannot be used.
    std::optional<Error> take(const std::filesystem::path &path, uint32_t mode);

  private:
    int lock_ = -1;
};

// $XDG_STATE_HOME/vantro, else ~/.local/state/vantro; empty if neither is known.
std::filesystem::path default_state_directory();

// Whether that many bytes can be written to the directory now.
bool has_room(const std::filesystem::path &state, size_t bytes);

// Numbers that are used once only. They have a separate file: the catalogue's file is made again if
// it is damaged, and is locked while a scan writes.
class SessionNumbers {
  public:
    explicit SessionNumbers(std::filesystem::path file) : file_(std::move(file)) {}

    // The first of `count` numbers; 0 if they have run out or cannot be saved. Any thread.
    int32_t take(int32_t count) EXCLUDES(mutex_);

  private:
    bool note(int64_t next) const;

    const std::filesystem::path file_;
    Mutex mutex_;
    int64_t next_ GUARDED_BY(mutex_) = 0; // 0: not read yet
};

} // namespace vantro::service::catalogue

#endif
