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

// Both buffers are bounded: no more is read while whole lines wait, and whoever fills the output
// stops while it is `full()`.
class Connection {
  public:
    // A line is no longer, its end included. Long filters and lists of tags fit many times.
    static constexpr size_t line_max = 64 * 1024;
    // Output that waits for the client, beyond which no more is made.
    static constexpr size_t output_enough = 64 * 1024;
    // What a client may go on to send after its last answer.
    static constexpr size_t thrown_away_max = 16 * 1024 * 1024;

    explicit Connection(Descriptor socket) : socket_(std::move(socket)) {}

    int descriptor() const { return socket_.get(); }

    // Reads what has arrived, up to the length of a line.
    void receive();

    // Sends as much of the output as the client takes now.
    void send();

    // Ends the connection once the output is sent. Until the client ends it too, what still comes
    // is thrown away, up to a limit: closed with bytes unread, it would lose the last answer.
    void finish();

    // The next whole line, without its end; valid until the next call of receive() or take_line().
    std::optional<std::string_view> take_line();

    // Whether take_line() would give a line.
    bool has_line() const { return input_.find('\n', taken_) != std::string::npos; }

    // Whether the client has sent more without the end of a line than a line may have.
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
    size_t taken_ = 0; // Bytes of the input that were given out.
    std::string output_;
    size_t sent_ = 0;
    bool at_end_ = false;
    bool finishing_ = false;
    size_t thrown_away_ = 0;
    bool broken_ = false;
};

} // namespace vantro::mpd

#endif
