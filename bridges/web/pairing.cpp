#include "bridges/web/pairing.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include <fcntl.h>
#include <fmt/format.h>
#include <nettle/hmac.h>
#include <nettle/memops.h>
#include <sys/random.h>

#include "bridges/sockets/descriptor.h"
#include "bridges/web/api_error.h"

namespace vantro::web {
namespace {

// Ten guesses a minute at one code of a hundred million: ten years for a chance of one in two.
constexpr int wrong_codes_max = 10;
constexpr std::chrono::seconds counted_for(60);
constexpr size_t id_digits = 32;
constexpr size_t signature_digits = 64;

template <size_t size>
std::array<uint8_t, size> random_bytes() {
    std::array<uint8_t, size> bytes{};
    if (getrandom(bytes.data(), size, 0) != static_cast<ssize_t>(size)) {
        throw std::runtime_error("the system has no random numbers");
    }
    return bytes;
}

template <size_t size>
std::string hexadecimal(const std::array<uint8_t, size> &bytes) {
    std::string digits;
    for (const uint8_t byte : bytes) {
        digits += fmt::format("{:02x}", byte);
    }
    return digits;
}

bool are_equal(std::string_view one, std::string_view other) {
    return one.size() == other.size() && memeql_sec(one.data(), other.data(), one.size()) != 0;
}

// The remainder favours none of the codes by more than one part in 10^11.
std::string random_code() {
    uint64_t number = 0;
    for (const uint8_t byte : random_bytes<8>()) {
        number = number << 8 | byte;
    }
    return fmt::format("{:08}", number % 100'000'000);
}

} // namespace

Pairing::Pairing(const std::string &folder) : code_(random_code()) {
    if (folder.empty()) {
        key_ = random_bytes<32>();
    } else {
        load_key(folder);
    }
}

void Pairing::load_key(const std::string &folder) {
    const std::string path = folder + "/web-key";
    const auto fail = [&path] {
        throw std::runtime_error(
            fmt::format("cannot store a key in {}: {}", path, std::strerror(errno)));
    };
    std::error_code ignored;
    std::filesystem::create_directories(folder, ignored);
    const sockets::Descriptor file(
        ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!file) {
        fail();
    }
    const ssize_t count = ::read(file.get(), key_.data(), key_.size());
    if (count == static_cast<ssize_t>(key_.size())) {
        return;
    }
    // The file is new, or a killed run left it incomplete.
    key_ = random_bytes<32>();
    if (ftruncate(file.get(), 0) != 0 ||
        pwrite(file.get(), key_.data(), key_.size(), 0) != static_cast<ssize_t>(key_.size())) {
        fail();
    }
}

std::string Pairing::sign(std::string_view id) const {
    hmac_sha256_ctx context{};
    std::array<uint8_t, SHA256_DIGEST_SIZE> digest{};
    hmac_sha256_set_key(&context, key_.size(), key_.data());
    hmac_sha256_update(&context, id.size(), reinterpret_cast<const uint8_t *>(id.data()));
    hmac_sha256_digest(&context, digest.size(), digest.data());
    return hexadecimal(digest);
}

std::string Pairing::pair(std::string_view code, Clock::time_point now) {
    if (now - counted_since_ > counted_for) {
        counted_since_ = now;
        wrong_codes_ = 0;
    }
    if (wrong_codes_ >= wrong_codes_max) {
        throw ApiError(429, "too_many_codes", "too many wrong codes; try again in a minute");
    }
    std::string digits;
    for (const char c : code) {
        if (c != ' ' && c != '-') {
            digits += c;
        }
    }
    if (!are_equal(digits, code_)) {
        ++wrong_codes_;
        throw ApiError(403, "wrong_code", "the code is wrong");
    }
    const std::string id = hexadecimal(random_bytes<id_digits / 2>());
    return id + sign(id);
}

bool Pairing::knows(std::string_view token) const {
    return token.size() == id_digits + signature_digits &&
           are_equal(token.substr(id_digits), sign(token.substr(0, id_digits)));
}

} // namespace vantro::web
