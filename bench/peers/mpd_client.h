// MPD as configured for the comparison, and a connection of libmpdclient to a server of its
// protocol.
#ifndef VANTRO_BENCH_PEERS_MPD_CLIENT_H
#define VANTRO_BENCH_PEERS_MPD_CLIENT_H

#include <chrono>
#include <fstream>
#include <string>
#include <thread>

#include <mpd/client.h>

#include "bench/peers/peer.h"

namespace vantro::bench::peers {

// Writes the configuration of an MPD with the null output, which listens at STATE/socket.
// @return its path.
inline std::string write_mpd_configuration(const std::string &music, const std::string &state) {
    std::string path = state + "/mpd.conf";
    std::ofstream(path) << "music_directory \"" << music << "\"\n"
                        << "db_file \"" << state << "/database\"\n"
                        << "bind_to_address \"" << state << "/socket\"\n"
                        << "log_file \"/dev/null\"\n"
                        << "zeroconf_enabled \"no\"\n"
                        << "connection_timeout \"100000\"\n"
                        << "max_output_buffer_size \"65536\"\n"
                        << "audio_output {\n type \"null\"\n name \"null\"\n}\n";
    return path;
}

class MpdConnection {
  public:
    // The service may still be starting.
    explicit MpdConnection(const std::string &socket) {
        constexpr int most_tries = 100'000;
        for (int tries = 0; tries < most_tries && !is_open(); ++tries) {
            if (connection_) {
                mpd_connection_free(connection_);
                std::this_thread::sleep_for(std::chrono::microseconds(200));
            }
            connection_ = mpd_connection_new(socket.c_str(), 0, 100'000);
        }
        check(is_open(), "the service does not answer");
    }
    ~MpdConnection() { mpd_connection_free(connection_); }
    MpdConnection(const MpdConnection &) = delete;
    MpdConnection &operator=(const MpdConnection &) = delete;

    mpd_connection *get() const { return connection_; }

    // Takes the songs of an answer. @return how many.
    int receive_songs() const {
        int count = 0;
        while (mpd_song *const song = mpd_recv_song(connection_)) {
            mpd_song_free(song);
            ++count;
        }
        check(mpd_response_finish(connection_), "a query was refused");
        return count;
    }

  private:
    bool is_open() const {
        return connection_ && mpd_connection_get_error(connection_) == MPD_ERROR_SUCCESS;
    }

    mpd_connection *connection_ = nullptr;
};

} // namespace vantro::bench::peers

#endif
