#include "service/sound/pipe_output.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

namespace vantro::service::sound {

std::optional<Error> PipeOutput::open(const std::string &path) {
    if (::mkfifo(path.c_str(), 0660) != 0 && errno != EEXIST) {
        return Error::failed(Error::Origin::system, errno,
                             fmt::format("cannot make the pipe '{}'", path));
    }
    struct stat status = {};
    if (::stat(path.c_str(), &status) == 0 && !S_ISFIFO(status.st_mode)) {
        return Error(Error::Origin::system, EEXIST, fmt::format("'{}' is not a pipe", path));
    }
    reader_ = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (reader_ < 0) {
        return Error::failed(Error::Origin::system, errno,
                             fmt::format("cannot open the pipe '{}'", path));
    }
    return std::nullopt;
}

void PipeOutput::close() {
    if (const int reader = reader_.exchange(-1); reader >= 0) {
        ::close(reader);
    }
}

} // namespace vantro::service::sound
