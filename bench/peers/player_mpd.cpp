// MPD with its null output, and libmpdclient.
#include <fstream>
#include <thread>

#include <mpd/client.h>

#include "bench/peers/peer.h"
#include "bench/peers/player.h"

namespace vantro::bench::peers {

namespace {

class Mpd : public Player {
  public:
    Mpd(const std::string &music, const std::string &state)
        : socket_(state + "/socket"), service_({"mpd", "--no-daemon", configuration(music, state)},
                                               -1, Child::Errors::passed_on),
          connection_(connect()) {}
    ~Mpd() override { mpd_connection_free(connection_); }

    void wait_until_scanned(int songs) override {
        for (;;) {
            mpd_stats *const stats = mpd_run_stats(connection_);
            check(stats, "stats");
            const bool all = mpd_stats_get_number_of_songs(stats) == static_cast<unsigned>(songs);
            mpd_stats_free(stats);
            if (all) {
                return;
            }
            check(mpd_run_idle_mask(connection_, MPD_IDLE_DATABASE) != 0, "idle");
        }
    }

    void play_all() override {
        check(mpd_run_clear(connection_) && mpd_run_add(connection_, "") &&
                  mpd_run_play_pos(connection_, 0),
              "play");
    }

    void repeat(bool on) override { check(mpd_run_repeat(connection_, on), "repeat"); }
    void pause(bool on) override { check(mpd_run_pause(connection_, on), "pause"); }

    void state() override {
        mpd_status *const status = mpd_run_status(connection_);
        check(status, "status");
        mpd_status_free(status);
    }

    void status() override {
        check(mpd_command_list_begin(connection_, true) && mpd_send_status(connection_) &&
                  mpd_send_current_song(connection_) && mpd_command_list_end(connection_),
              "status");
        mpd_status *const status = mpd_recv_status(connection_);
        check(status && mpd_response_next(connection_), "status");
        mpd_song *const song = mpd_recv_song(connection_);
        check(song && mpd_response_finish(connection_), "status");
        mpd_status_free(status);
        mpd_song_free(song);
    }

    int listing() override {
        check(mpd_send_list_all(connection_, nullptr), "listing");
        return receive_songs();
    }

    void page(int offset) override {
        check(mpd_search_db_songs(connection_, true) &&
                  mpd_search_add_expression(connection_, "(modified-since '1970-01-02')") &&
                  add_window(offset) && mpd_search_commit(connection_) &&
                  receive_songs() == page_songs,
              "a page");
    }

    void queue_page(int offset) override {
        check(mpd_send_list_queue_range_meta(connection_, static_cast<unsigned>(offset),
                                             static_cast<unsigned>(offset + page_songs)) &&
                  receive_songs() == page_songs,
              "a page of the queue");
    }

    int search(const std::string &term) override {
        check(mpd_search_db_songs(connection_, false) &&
                  mpd_search_add_any_tag_constraint(connection_, MPD_OPERATOR_DEFAULT,
                                                    term.c_str()) &&
                  add_window(0) && mpd_search_commit(connection_),
              "search");
        return receive_songs();
    }

    void follow(Told &told) override {
        mpd_connection *const follower = connect();
        while (mpd_run_idle_mask(follower, MPD_IDLE_OPTIONS) != 0) {
            told.now();
        }
    }

    int64_t pss_bytes() const override { return peers::pss_bytes(service_.pid()); }

  private:
    static std::string configuration(const std::string &music, const std::string &state) {
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

    // The service may still be starting.
    mpd_connection *connect() const {
        constexpr int most_tries = 100000;
        for (int tries = 0; tries < most_tries; ++tries) {
            mpd_connection *const connection = mpd_connection_new(socket_.c_str(), 0, 100000);
            if (mpd_connection_get_error(connection) == MPD_ERROR_SUCCESS) {
                return connection;
            }
            mpd_connection_free(connection);
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
        fail("MPD does not answer");
    }

    bool add_window(int offset) {
        return mpd_search_add_window(connection_, static_cast<unsigned>(offset),
                                     static_cast<unsigned>(offset + page_songs));
    }

    int receive_songs() {
        int count = 0;
        while (mpd_song *const song = mpd_recv_song(connection_)) {
            mpd_song_free(song);
            ++count;
        }
        check(mpd_response_finish(connection_), "MPD refused a query");
        return count;
    }

    std::string socket_;
    Child service_;
    mpd_connection *connection_;
};

} // namespace

std::unique_ptr<Player> start(const std::string &music, const std::string &state) {
    return std::make_unique<Mpd>(music, state);
}

} // namespace vantro::bench::peers
