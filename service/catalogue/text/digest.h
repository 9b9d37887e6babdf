// SHA-256.
#ifndef VANTRO_SERVICE_CATALOGUE_TEXT_DIGEST_H
#define VANTRO_SERVICE_CATALOGUE_TEXT_DIGEST_H

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace vantro::service::catalogue {

// SHA-256 of the bytes, and the same in hexadecimal.
std::array<uint8_t, 32> sha256(std::string_view bytes);
std::string digest(std::string_view bytes);

} // namespace vantro::service::catalogue

#endif
