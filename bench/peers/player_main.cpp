// The main program for each player service: MUSIC STATE SONGS TERMS. SONGS is the number of songs
// in MUSIC, TERMS a file with words that their titles contain.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include <unistd.h>

#include "bench/peers/peer.h"
#include "bench/peers/player.h"

namespace {

using namespace vantro::bench::peers;

class Measured {
  public:
    Measured(std::string music, std::string state, int songs, const std::string &terms)
        : music_(std::move(music)), state_(std::move(state)), songs_(songs) {
        std::ifstream file(terms);
        for (std::string term; std::getline(file, term);) {
            terms_.push_back(term);
        }
        check(!terms_.empty(), "there are no words to search for");
    }

    Times scan() {
        player_.reset();
        std::filesystem::remove_all(state_);
        std::filesystem::create_directories(state_);
        return time_each(1, [&] {
            player_ = start(music_, state_);
            player_->wait_until_scanned(songs_);
        });
    }

    // The time from before the process starts until its first page.
    Times second_start() {
        player_.reset();
        return time_each(1, [&] {
            player_ = start(music_, state_);
            player_->page(0);
        });
    }

    Times command(size_t count) {
        play();
        return time_each(count, [&, step = 0]() mutable {
            const int turn = step++ % 4;
            turn % 2 == 0 ? player_->repeat(turn == 0) : player_->pause(turn == 1);
        });
    }

    // The time from before a command until another connection learned of it. The follower waits
    // again before the next command.
    Times event(size_t count) {
        play();
        static Told told;
        static std::thread follower;
        if (!follower.joinable()) {
            follower = std::thread([&] { player_->follow(told); });
            follower.detach();
        }
        player_->repeat(on_ = false); // otherwise the next command might change nothing
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        Times times;
        for (size_t i = 0; i < count; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            const uint32_t before = told.times;
            const int64_t begin = now_ns();
            player_->repeat(on_ = !on_);
            told.times.wait(before);
            times.push_back(told.at_ns - begin);
        }
        return times;
    }

    Times search(size_t count, bool asked_before) {
        return time_each(count, [&] {
            const size_t term = asked_before ? 0 : 1 + next_term_++ % (terms_.size() - 1);
            check(player_->search(terms_[term]) > 0, "nothing is found");
        });
    }

    int next_offset() { return offset_ = (offset_ + 7919) % (songs_ - page_songs); }

    Player &player() { return *player_; }
    int songs() const { return songs_; }

  private:
    void play() {
        if (!playing_) {
            player_->play_all();
            playing_ = true;
        }
    }

    std::string music_;
    std::string state_;
    int songs_;
    std::vector<std::string> terms_;
    size_t next_term_ = 0;
    int offset_ = 0;
    bool playing_ = false;
    bool on_ = false;
    std::unique_ptr<Player> player_;
};

} // namespace

int main(int argc, char **argv) {
    check(argc == 5, "MUSIC STATE SONGS TERMS");
    Measured measured(argv[1], argv[2], std::atoi(argv[3]), argv[4]);
    const auto each = [&](auto action) {
        return [&, action](size_t count) { return time_each(count, action); };
    };
    const int status = take_turns({
        {"scan", [&](size_t) { return measured.scan(); }},
        {"second_start", [&](size_t) { return measured.second_start(); }},
        {"memory", [&](size_t) { return Times{measured.player().pss_bytes()}; }},
        {"command", [&](size_t count) { return measured.command(count); }},
        {"event", [&](size_t count) { return measured.event(count); }},
        {"state", each([&] { measured.player().state(); })},
        {"status", each([&] { measured.player().status(); })},
        {"listing",
         each([&] { check(measured.player().listing() == measured.songs(), "a short listing"); })},
        {"page", each([&] { measured.player().page(measured.next_offset()); })},
        {"queue_page", each([&] { measured.player().queue_page(measured.next_offset()); })},
        {"search_before", [&](size_t count) { return measured.search(count, true); }},
        {"search_new", [&](size_t count) { return measured.search(count, false); }},
    });
    std::_Exit(status); // the follower's thread never ends
}
