#include "service/catalogue/text/digest.h"

#include <fmt/format.h>
#include <nettle/sha2.h>

namespace vantro::service::catalogue {

std::array<uint8_t, 32> sha256(std::string_view bytes) {
    std::array<uint8_t, 32> out;
    static_assert(sizeof out == SHA256_DIGEST_SIZE);
    sha256_ctx context;
    sha256_init(&context);
    sha256_update(&context, bytes.size(), reinterpret_cast<const uint8_t *>(bytes.data()));
    sha256_digest(&context, out.size(), out.data());
    return out;
}

std::string digest(std::string_view bytes) {
    std::string text;
    for (const uint8_t byte : sha256(bytes)) {
        text += fmt::format("{:02x}", byte);
    }
    return text;
}

} // namespace vantro::service::catalogue
