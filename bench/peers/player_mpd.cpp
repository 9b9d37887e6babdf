// MPD with its null output, and libmpdclient.
#include <mpd/client.h>

#include "bench/peers/mpd_client.h"
#include "bench/peers/peer.h"
#include "bench/peers/player.h"

namespace vantro::bench::peers {

namespace {

class Mpd : public Player {
  public:
    Mpd(const std::string &music, const std::string &state)
        : socket_(state + "/socket"),
          service_({"mpd", "--no-daemon", write_mpd_configuration(music, state)}, -1,
                   Child::Errors::passed_on),
          connection_(socket_) {}

    void wait_until_scanned(int songs) override {
        for (;;) {
            mpd_stats *const stats = mpd_run_stats(connection_.get());
            check(stats, "stats");
            const bool all = mpd_stats_get_number_of_songs(stats) == static_cast<unsigned>(songs);
            mpd_stats_free(stats);
            if (all) {
                return;
            }
            check(mpd_run_idle_mask(connection_.get(), MPD_IDLE_DATABASE) != 0, "idle");
        }
    }

    void play_all() override {
        check(mpd_run_clear(connection_.get()) && mpd_run_add(connection_.get(), "") &&
                  mpd_run_play_pos(connection_.get(), 0),
              "play");
    }

    void repeat(bool on) override { check(mpd_run_repeat(connection_.get(), on), "repeat"); }
    void pause(bool on) override { check(mpd_run_pause(connection_.get(), on), "pause"); }

    void state() override {
        mpd_status *const status = mpd_run_status(connection_.get());
        check(status, "status");
        mpd_status_free(status);
    }

    void status() override {
        check(mpd_command_list_begin(connection_.get(), true) &&
                  mpd_send_status(connection_.get()) && mpd_send_current_song(connection_.get()) &&
                  mpd_command_list_end(connection_.get()),
              "status");
        mpd_status *const status = mpd_recv_status(connection_.get());
        check(status && mpd_response_next(connection_.get()), "status");
        mpd_song *const song = mpd_recv_song(connection_.get());
        check(song && mpd_response_finish(connection_.get()), "status");
        mpd_status_free(status);
        mpd_song_free(song);
    }

    int listing() override {
        check(mpd_send_list_all(connection_.get(), nullptr), "listing");
        return connection_.receive_songs();
    }

    void page(int offset) override {
        check(mpd_search_db_songs(connection_.get(), true) &&
                  mpd_search_add_expression(connection_.get(), "(modified-since '1970-01-02')") &&
                  add_window(offset) && mpd_search_commit(connection_.get()) &&
                  connection_.receive_songs() == page_songs,
              "a page");
    }

    void queue_page(int offset) override {
        check(mpd_send_list_queue_range_meta(connection_.get(), static_cast<unsigned>(offset),
                                             static_cast<unsigned>(offset + page_songs)) &&
                  connection_.receive_songs() == page_songs,
              "a page of the queue");
    }

    int search(const std::string &term) override {
        check(mpd_search_db_songs(connection_.get(), false) &&
                  mpd_search_add_any_tag_constraint(connection_.get(), MPD_OPERATOR_DEFAULT,
                                                    term.c_str()) &&
                  add_window(0) && mpd_search_commit(connection_.get()),
              "search");
        return connection_.receive_songs();
    }

    void follow(Told &told) override {
        const MpdConnection follower(socket_);
        while (mpd_run_idle_mask(follower.get(), MPD_IDLE_OPTIONS) != 0) {
            told.now();
        }
    }

    int64_t pss_bytes() const override { return peers::pss_bytes(service_.pid()); }

  private:
    bool add_window(int offset) {
        return mpd_search_add_window(connection_.get(), static_cast<unsigned>(offset),
                                     static_cast<unsigned>(offset + page_songs));
    }

    std::string socket_;
    Child service_;
    MpdConnection connection_;
};

} // namespace

std::unique_ptr<Player> start(const std::string &music, const std::string &state) {
    return std::make_unique<Mpd>(music, state);
}

} // namespace vantro::bench::peers
