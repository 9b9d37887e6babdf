// Writing answers to a client.
#ifndef VANTRO_BRIDGES_MPD_REPLY_H
#define VANTRO_BRIDGES_MPD_REPLY_H

#include <string>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "bridges/mpd/song.h"

namespace vantro::mpd {

class Reply {
  public:
    explicit Reply(std::string &output) : output_(output) {}

    // Writes one line. Line ends within a value, which would be lines of the protocol, are
    // replaced.
    void pair(std::string_view key, std::string_view value) {
        output_ += key;
        output_ += ": ";
        const size_t begin = output_.size();
        output_ += value;
        for (size_t at = begin; at < output_.size(); ++at) {
            if (output_[at] == '\n' || output_[at] == '\r') {
                output_[at] = ' ';
            }
        }
        output_ += '\n';
    }
    void number(std::string_view key, long long value) {
        fmt::format_to(std::back_inserter(output_), "{}: {}\n", key, value);
    }

    void raw(std::string_view bytes) { output_ += bytes; }

    // Writes a song with the tags that the client wants to see.
    void song(const Song &song, const TagSet &shown);

    size_t size() const { return output_.size(); }

  private:
    std::string &output_;
};

// Milliseconds as seconds with three decimals.
std::string format_seconds(int64_t ms);

// "RATE:BITS:CHANNELS" of the song, or empty if it is unknown.
std::string audio_format(const Song &song);

} // namespace vantro::mpd

#endif
