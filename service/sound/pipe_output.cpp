#include "service/sound/pipe_output.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "service/free_thread.h"

namespace vantro::service::sound {

namespace {

// The interval at which give_up() is noticed, and a pipe that was opened again.
constexpr std::chrono::milliseconds pause(10);

} // namespace

PipeOutput::~PipeOutput() {
    ended_ = true;
    if (discarder_.joinable()) {
        discarder_.join();
    }
    if (reader_ >= 0) {
        ::close(reader_);
    }
}

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

void PipeOutput::give_up() {
    if (reader_ < 0 || discarder_.joinable()) {
        return;
    }
    try {
        discarder_ = start_free_thread([this] { discard(); });
    } catch (const std::system_error &) {
        // A writer then fails; a thread that opens the pipe again waits.
        ::close(std::exchange(reader_, -1));
    }
}

void PipeOutput::discard() noexcept {
    while (!ended_) {
        std::array<char, 65536> samples;
        struct pollfd reader = {reader_, POLLIN, 0};
        ::poll(&reader, 1, static_cast<int>(pause.count()));
        if (::read(reader_, samples.data(), samples.size()) <= 0) {
            std::this_thread::sleep_for(pause); // while no writer has the pipe open
        }
    }
}

} // namespace vantro::service::sound
