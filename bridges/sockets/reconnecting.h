// When a bridge tries to reach the service again, and how long it waits for it.
#ifndef VANTRO_BRIDGES_SOCKETS_RECONNECTING_H
#define VANTRO_BRIDGES_SOCKETS_RECONNECTING_H

#include <chrono>
#include <optional>

#include <vantro/vantro.hpp>

namespace vantro::sockets {

// A bridge has one thread, so all of its clients wait while it waits for the service. If the
// service does not answer (it may be stopped), the bridge waits long once. After that it tries with
// short waits, and with pauses in which clients are answered at once.
class Reconnecting {
  public:
    using Clock = std::chrono::steady_clock;

    // Tries once. @param name of the player; NULL: none.
    // @param also a further check for a new connection; returns a Result<void>.
    template <typename Also>
    Result<Player> connect(const char *name, Also also) {
        const Clock::time_point begun = Clock::now();
        Result<Player> player = name ? Player::connect(name, limit()) : Player::connect(limit());
        if (player) {
            Result<void> ready = also(*player);
            if (ready) {
                ready = player->set_timeout(answer_limit);
            }
            if (!ready) {
                hurry(*player);
                player = ready.failure();
            }
        }
        if (player) {
            succeeded();
        } else {
            silent_ = player.failure().why() == Reason::timed_out;
            failed(begun);
        }
        return player;
    }

    // Records that an attempt that began at `begun` has failed. The pause before the next one
    // grows.
    void failed(Clock::time_point begun);
    void succeeded();
    // Closes a connection. @param silent whether the service runs but has not answered.
    void lost(std::optional<Player> &player, bool silent);
    // Delays the next attempt, which would fail now.
    void put_off();

    // Whether the next attempt may be made: without a request, or because a client needs the
    // service.
    bool is_due() const { return Clock::now() >= retry_at_; }
    bool is_due_when_asked() const { return Clock::now() >= asked_retry_at_; }
    Clock::time_point retry_at() const { return retry_at_; }

  private:
    using Milliseconds = std::chrono::milliseconds;
    static constexpr Milliseconds answer_limit{5000};
    static constexpr Milliseconds probe_limit{500};

    // Closing also waits for the service, so that wait is bounded: the service notices the end of a
    // connection anyway.
    static void hurry(Player &player) { (void)player.set_timeout(Milliseconds(1)); }
    Milliseconds limit() const { return silent_ ? probe_limit : answer_limit; }

    bool silent_ = false; // The service did not answer the last request.
    Milliseconds delay_{0};
    Clock::time_point retry_at_{};
    Clock::time_point asked_retry_at_{};
};

} // namespace vantro::sockets

#endif
