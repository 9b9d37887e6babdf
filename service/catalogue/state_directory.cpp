#include "service/catalogue/state_directory.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include <fmt/format.h>

namespace vantro::service::catalogue {

StateDirectory::~StateDirectory() {
    if (lock_ >= 0) {
        close(lock_);
    }
}

std::optional<Error> StateDirectory::take(const std::filesystem::path &path, uint32_t mode) {
    std::error_code error;
    if (std::filesystem::create_directories(path, error)) {
        chmod(path.c_str(), mode);
    }
    if (error) {
        return Error::failed(Error::Origin::state, error.value(),
                             fmt::format("cannot make '{}'", path.native()));
    }
    const std::filesystem::path file = path / "lock";
    lock_ = open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (lock_ < 0) {
        return Error::failed(Error::Origin::state, errno,
                             fmt::format("cannot use '{}'", file.native()));
    }
    struct flock whole = {};
    whole.l_type = F_WRLCK;
    if (fcntl(lock_, F_OFD_SETLK, &whole) != 0) {
        return Error(Error::Origin::state, EBUSY,
                     fmt::format("'{}' is used by another vantrod", path.native()));
    }
    return std::nullopt;
}

std::filesystem::path default_state_directory() {
    if (const char *state = std::getenv("XDG_STATE_HOME"); state && *state == '/') {
        return std::filesystem::path(state) / "vantro";
    }
    if (const char *home = std::getenv("HOME"); home && *home == '/') {
        return std::filesystem::path(home) / ".local/state/vantro";
    }
    return {};
}

bool has_room(const std::filesystem::path &state, size_t bytes) {
    const std::filesystem::path file = state / "room";
    const int descriptor =
        open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (descriptor < 0) {
        return false;
    }
    const std::string block(bytes, 'x');
    bool good = write(descriptor, block.data(), bytes) == static_cast<ssize_t>(bytes);
    good = fsync(descriptor) == 0 && good; // some file systems reserve the room only now
    close(descriptor);
    unlink(file.c_str());
    return good;
}

int32_t SessionNumbers::take(int32_t count) {
    const MutexLock guard(mutex_);
    if (next_ == 0) {
        std::ifstream noted(file_);
        std::error_code error;
        if (!noted && (std::filesystem::exists(file_, error) || error)) {
            return 0; // for the moment the numbers already used cannot be read
        }
        if (!(noted >> next_) || next_ < 1) {
            next_ = 1;
        }
    }
    if (count < 1 || next_ > INT32_MAX - count + int64_t{1} || !note(next_ + count)) {
        return 0;
    }
    const int64_t first = next_;
    next_ += count;
    return static_cast<int32_t>(first);
}

// The file holds the old number or the new one, also after a power cut.
bool SessionNumbers::note(int64_t next) const {
    const std::string text = fmt::format("{}\n", next);
    const std::string part = file_.native() + ".part";
    const int descriptor = open(part.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (descriptor < 0) {
        return false;
    }
    bool good = write(descriptor, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    good = fsync(descriptor) == 0 && good;
    good = close(descriptor) == 0 && good;
    if (!good || rename(part.c_str(), file_.c_str()) != 0) {
        return false;
    }
    // Without this the old file may be back after a power cut, and its numbers would be reused.
    const int folder = open(file_.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0) {
        return false;
    }
    good = fsync(folder) == 0;
    close(folder);
    return good;
}

} // namespace vantro::service::catalogue
