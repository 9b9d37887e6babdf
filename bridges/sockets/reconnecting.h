// When a bridge looks for the service again, and how long it waits for it.
#ifndef VANTRO_BRIDGES_SOCKETS_RECONNECTING_H
#define VANTRO_BRIDGES_SOCKETS_RECONNECTING_H

#include <chrono>
#include <optional>

#include <vantro/vantro.hpp>

namespace vantro::sockets {

// A bridge has one thread, so all of its clients wait while it waits for the service. A service
// that does not answer (it may be stopped) costs one long wait. After that it is asked with short
// waits, and with pauses in which clients are answered at once.
class Reconnecting {
  public:
    using Clock = std::chrono::steady_clock;

    // Tries once. @param name of the player; NULL: none.
    // @param also a further step that a new connection must pass; gives a Result<void>.
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

    // Notes that an attempt that began at `begun` has failed. The pause before the next one grows.
    void failed(Clock::time_point begun);
    void succeeded();
    // Gives a connection up. @param silent whether the service is there but has not answered.
    void lost(std::optional<Player> &player, bool silent);
    // Delays the next attempt, which would fail now.
    void put_off();

    // Whether the next attempt may be made, also if a client asks for the service.
    bool is_due() const { return Clock::now() >= retry_at_; }
    bool is_due_when_asked() const { return Clock::now() >= asked_retry_at_; }
    Clock::time_point retry_at() const { return retry_at_; }

  private:
    using Milliseconds = std::chrono::milliseconds;
    static constexpr Milliseconds answer_limit{5000};
    static constexpr Milliseconds probe_limit{500};

    // Closing asks the service too, so its wait is bounded: the service notices the end of a
    // connection anyway.
    static void hurry(Player &player) { (void)player.set_timeout(Milliseconds(1)); }
    Milliseconds limit() const { return silent_ ? probe_limit : answer_limit; }

    bool silent_ = false; // The service did not answer when it was last asked.
    Milliseconds delay_{0};
    Clock::time_point retry_at_{};
    Clock::time_point asked_retry_at_{};
};

} // namespace vantro::sockets

#endif
