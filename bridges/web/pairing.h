// Admits clients on other machines: they give a code once, and send a token from then on.
#ifndef VANTRO_BRIDGES_WEB_PAIRING_H
#define VANTRO_BRIDGES_WEB_PAIRING_H

#include <array>
#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace vantro::web {

class Pairing {
  public:
    using Clock = std::chrono::steady_clock;

    // @param folder of the key, so that tokens outlive this process; empty: the key is not stored.
    // @throws std::runtime_error if the key can be neither read nor made.
    explicit Pairing(const std::string &folder);

    // Eight digits, different in each run.
    const std::string &code() const { return code_; }

    // Blanks and hyphens are ignored. @return a token. @throws ApiError if the code is wrong, or
    // too many wrong ones came lately.
    std::string pair(std::string_view code, Clock::time_point now = Clock::now());

    bool knows(std::string_view token) const;

  private:
    std::string sign(std::string_view id) const;
    void load_key(const std::string &folder);

    std::array<uint8_t, 32> key_{};
    std::string code_;
    int wrong_codes_ = 0;
    Clock::time_point counted_since_{};
};

} // namespace vantro::web

#endif
