// The times that a client of the MPD protocol waits: MUSIC STATE SONGS TERMS mpd|vantro-mpd. The
// client is the same for both, libmpdclient on a Unix socket.
#include <cstdlib>
#include <fstream>
#include <optional>
#include <thread>

#include <mpd/client.h>

#include "bench/peers/mpd_client.h"
#include "bench/peers/peer.h"
#include "bench/peers/player.h"
#include "bench/peers/turns.h"

namespace {

using vantro::bench::Child;
using namespace vantro::bench::peers;

std::vector<std::string> receive_values(const MpdConnection &connection, mpd_tag_type tag) {
    std::vector<std::string> values;
    while (mpd_pair *const pair = mpd_recv_pair_tag(connection.get(), tag)) {
        values.emplace_back(pair->value);
        mpd_return_pair(connection.get(), pair);
    }
    check(mpd_response_finish(connection.get()), "a query was refused");
    return values;
}

// The programs that a client needs.
class Service {
  public:
    Service(bool is_mpd, const std::string &music, const std::string &state)
        : socket_(state + "/socket") {
        if (is_mpd) {
            start(programs_[0], {"mpd", "--no-daemon", write_mpd_configuration(music, state)});
            return;
        }
        start(programs_[0],
              {std::getenv("VANTROD"), "--music", music, "--state", state, "--audio", "clock"});
        programs_[0]->wait_for_line("vantrod: scanned");
        start(programs_[1], {std::getenv("VANTRO_MPD"), "--bind", socket_});
        programs_[1]->wait_for_line("vantro-mpd: ready");
    }

    const std::string &socket() const { return socket_; }

  private:
    static void start(std::optional<Child> &program, std::vector<std::string> arguments) {
        program.emplace(std::move(arguments), -1, Child::Errors::passed_on);
    }

    std::string socket_;
    std::optional<Child> programs_[2];
};

class Measured {
  public:
    Measured(bool is_mpd, const std::string &music, const std::string &state, int songs,
             const std::string &terms)
        : service_(is_mpd, music, state), connection_(service_.socket()), songs_(songs) {
        std::ifstream file(terms);
        for (std::string term; std::getline(file, term);) {
            terms_.push_back(term);
        }
        check(!terms_.empty(), "there are no words to search for");
        wait_until_scanned();
        check(mpd_run_add(connection_.get(), is_mpd ? "" : "music") &&
                  mpd_run_play_pos(connection_.get(), 0),
              "play");
        check(mpd_search_db_tags(connection_.get(), MPD_TAG_ARTIST) &&
                  mpd_search_commit(connection_.get()),
              "list");
        artists_ = receive_values(connection_, MPD_TAG_ARTIST);
        cover_of_ = (is_mpd ? "" : "music/") + std::string("0 Silence/01 0 Silence.flac");
        follower_ = std::thread([this] {
            const MpdConnection follower(service_.socket());
            while (mpd_run_idle_mask(follower.get(), MPD_IDLE_OPTIONS) != 0) {
                told_.now();
            }
        });
        follower_.detach();
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
    }

    void status() {
        mpd_status *const status = mpd_run_status(connection_.get());
        check(status, "status");
        mpd_status_free(status);
    }

    // The time from before a command until another client learned of it.
    Times event(size_t count) {
        Times times;
        for (size_t i = 0; i < count; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            const uint32_t before = told_.times;
            const int64_t begin = now_ns();
            check(mpd_run_repeat(connection_.get(), on_ = !on_), "repeat");
            told_.times.wait(before);
            times.push_back(told_.at_ns - begin);
        }
        return times;
    }

    void list_all() {
        check(mpd_send_list_all_meta(connection_.get(), nullptr), "listallinfo");
        int count = 0;
        while (mpd_entity *const entity = mpd_recv_entity(connection_.get())) {
            count += mpd_entity_get_type(entity) == MPD_ENTITY_TYPE_SONG;
            mpd_entity_free(entity);
        }
        check(mpd_response_finish(connection_.get()) && count == songs_, "listallinfo");
    }

    void find() {
        check(mpd_search_db_songs(connection_.get(), true) &&
                  mpd_search_add_tag_constraint(connection_.get(), MPD_OPERATOR_DEFAULT,
                                                MPD_TAG_ARTIST, next_of(artists_).c_str()) &&
                  mpd_search_commit(connection_.get()) && connection_.receive_songs() > 0,
              "find");
    }

    void search() {
        check(mpd_search_db_songs(connection_.get(), false) &&
                  mpd_search_add_any_tag_constraint(connection_.get(), MPD_OPERATOR_DEFAULT,
                                                    next_of(terms_).c_str()) &&
                  mpd_search_add_window(connection_.get(), 0, page_songs) &&
                  mpd_search_commit(connection_.get()) && connection_.receive_songs() > 0,
              "search");
    }

    void list_group() {
        check(mpd_search_db_tags(connection_.get(), MPD_TAG_ALBUM) &&
                  mpd_search_add_group_tag(connection_.get(), MPD_TAG_ARTIST) &&
                  mpd_search_commit(connection_.get()) &&
                  !receive_values(connection_, MPD_TAG_ALBUM).empty(),
              "list");
    }

    void queue_changes() {
        check(mpd_send_queue_changes_meta(connection_.get(), 0) &&
                  connection_.receive_songs() == songs_,
              "plchanges");
    }

    void cover() {
        char piece[8192];
        unsigned offset = 0;
        int received;
        while ((received = mpd_run_albumart(connection_.get(), cover_of_.c_str(), offset, piece,
                                            sizeof piece)) > 0) {
            offset += static_cast<unsigned>(received);
        }
        check(received == 0 && offset > 0, "albumart");
    }

  private:
    void wait_until_scanned() const {
        for (;;) {
            mpd_stats *const stats = mpd_run_stats(connection_.get());
            check(stats, "stats");
            const bool all = mpd_stats_get_number_of_songs(stats) == static_cast<unsigned>(songs_);
            mpd_stats_free(stats);
            if (all) {
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }

    const std::string &next_of(const std::vector<std::string> &all) {
        return all[++next_ % all.size()];
    }

    Service service_;
    MpdConnection connection_;
    int songs_;
    std::vector<std::string> terms_;
    std::vector<std::string> artists_;
    std::string cover_of_;
    size_t next_ = 0;
    bool on_ = false;
    Told told_;
    std::thread follower_;
};

} // namespace

int main(int argc, char **argv) {
    check(argc == 6, "MUSIC STATE SONGS TERMS mpd|vantro-mpd");
    Measured measured(std::string(argv[5]) == "mpd", argv[1], argv[2], std::atoi(argv[3]), argv[4]);
    const auto each = [&](auto action) {
        return
            [&, action](size_t count) { return time_each(count, [&] { (measured.*action)(); }); };
    };
    const int status = take_turns({
        {"status", each(&Measured::status)},
        {"event", [&](size_t count) { return measured.event(count); }},
        {"listallinfo", each(&Measured::list_all)},
        {"find", each(&Measured::find)},
        {"search", each(&Measured::search)},
        {"list_group", each(&Measured::list_group)},
        {"plchanges", each(&Measured::queue_changes)},
        {"albumart", each(&Measured::cover)},
    });
    std::_Exit(status); // the follower's thread never ends
}
