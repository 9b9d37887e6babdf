#include "bridges/mpd/connection.h"

#include <cerrno>
#include <utility>

#include <sys/socket.h>

namespace vantro::mpd {

void Connection::receive() {
    char bytes[16 * 1024];
    input_.erase(0, taken_);
    taken_ = 0;
    if (finishing_) {
        thrown_away_ += input_.size();
        input_.clear();
        at_end_ = at_end_ || thrown_away_ > thrown_away_max;
    }
    while (input_.size() < line_max && !at_end_) {
        const ssize_t count = ::recv(socket_.get(), bytes, sizeof bytes, 0);
        if (count > 0) {
            input_.append(bytes, static_cast<size_t>(count));
            continue;
        }
        if (count == 0) {
            at_end_ = true;
        } else if (errno == EINTR) {
            continue;
        } else if (errno != EAGAIN) {
            broken_ = true;
        }
        return;
    }
}

void Connection::send() {
    while (has_output()) {
        const ssize_t count =
            ::send(socket_.get(), output_.data() + sent_, output_.size() - sent_, MSG_NOSIGNAL);
        if (count >= 0) {
            sent_ += static_cast<size_t>(count);
        } else if (errno != EINTR) {
            broken_ = broken_ || errno != EAGAIN;
            break;
        }
    }
    if (sent_ == output_.size()) {
        output_.clear();
        sent_ = 0;
        if (output_.capacity() > 4 * output_enough) {
            output_.shrink_to_fit();
        }
    } else if (sent_ > output_enough) {
        output_.erase(0, sent_);
        sent_ = 0;
    }
}

void Connection::finish() {
    if (!has_output() && !std::exchange(finishing_, true)) {
        ::shutdown(socket_.get(), SHUT_WR);
        receive(); // discards the bytes that have arrived already
    }
}

std::optional<std::string_view> Connection::take_line() {
    const size_t end = input_.find('\n', taken_);
    if (end == std::string::npos) {
        return std::nullopt;
    }
    std::string_view line(input_.data() + taken_, end - taken_);
    taken_ = end + 1;
    if (line.ends_with('\r')) {
        line.remove_suffix(1);
    }
    return line;
}

} // namespace vantro::mpd
