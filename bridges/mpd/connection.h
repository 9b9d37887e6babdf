// The bytes between a client and the bridge.
#ifndef VANTRO_BRIDGES_MPD_CONNECTION_H
#define VANTRO_BRIDGES_MPD_CONNECTION_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "bridges/sockets/descriptor.h"

namespace vantro::mpd {

using sockets::Descriptor;

// Both buffers are bounded: while complete lines wait, no more is read, and commands stop making
// output while the buffer is `full()`.
class Connection {
  public:
    // Longest line, including its end. Long filters and lists of tags fit many times.
    static constexpr size_t line_max = 64 * 1024;
    // Pending output from which no more is made.
    static constexpr size_t output_enough = 64 * 1024;
    // Bytes that a client may still send after its last answer.
    static constexpr size_t thrown_away_max = 16 * 1024 * 1024;

    explicit Connection(Descriptor socket) : socket_(std::move(socket)) {}

    int descriptor() const { return socket_.get(); }

    // Reads what has arrived, up to the length of a line.
    void receive();

    // Sends as much of the output as possible without waiting.
    void send();

    // Ends the connection once the output is sent. Until the client closes its side, further input
    // is discarded, up to a limit: if the socket were closed with unread bytes, the last answer
    // would be lost.
    void finish();

    // Ends the connection without sending the output.
    void give_up() { broken_ = true; }

    // The next whole line, without its end; valid until the next call of receive() or take_line().
    std::optional<std::string_view> take_line();

    // Whether take_line() would return a line.
    bool has_line() const { return input_.find('\n', taken_) != std::string::npos; }

    // Whether the client has sent more bytes without a line end than a line may have.
    bool overlong() const { return input_.size() - taken_ >= line_max && !has_line(); }

    std::string &output() { return output_; }
    bool full() const { return output_.size() - sent_ >= output_enough; }
    bool has_output() const { return output_.size() > sent_; }

    // The client sends no more.
    bool at_end() const { return at_end_; }
    // The connection cannot be used any more.
    bool broken() const { return broken_; }

  private:
    Descriptor socket_;
    std::string input_;
    size_t taken_ = 0; // Bytes of the input that take_line() has returned.
    std::string output_;
    size_t sent_ = 0;
    bool at_end_ = false;
    bool finishing_ = false;
    size_t thrown_away_ = 0;
    bool broken_ = false;
};

} // namespace vantro::mpd

#endif
