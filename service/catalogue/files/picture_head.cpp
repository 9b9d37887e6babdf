#include "service/catalogue/files/picture_head.h"

namespace vantro::service::catalogue {

namespace {

uint32_t big_endian(std::string_view bytes, size_t at, size_t count) {
    uint32_t number = 0;
    for (size_t i = 0; i < count; ++i) {
        number = number << 8 | static_cast<unsigned char>(bytes[at + i]);
    }
    return number;
}

// A header that states more pixels a side than this is false.
constexpr uint32_t side_max = 1'000'000;

std::optional<PictureHead> sized(const char *ending, uint32_t width, uint32_t height) {
    if (width == 0 || height == 0 || width > side_max || height > side_max) {
        return std::nullopt;
    }
    return PictureHead{ending, static_cast<int32_t>(width), static_cast<int32_t>(height)};
}

// Segments follow each other up to the one that states the size: its marker is one of C0 to CF,
// except three with other meanings.
std::optional<PictureHead> jpeg_head(std::string_view bytes) {
    size_t at = 2;
    while (at + 9 <= bytes.size()) {
        if (bytes[at] != '\xFF') {
            return std::nullopt;
        }
        const auto marker = static_cast<unsigned char>(bytes[at + 1]);
        if (marker == 0xFF) { // padding
            ++at;
            continue;
        }
        if (marker == 0x01 || (marker >= 0xD0 && marker <= 0xD8)) { // these stand alone
            at += 2;
            continue;
        }
        if (marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 &&
            marker != 0xCC) {
            return sized("jpg", big_endian(bytes, at + 7, 2), big_endian(bytes, at + 5, 2));
        }
        const uint32_t length = big_endian(bytes, at + 2, 2);
        if (length < 2 || marker == 0xD9 || marker == 0xDA) {
            return std::nullopt;
        }
        at += 2 + length;
    }
    return std::nullopt;
}

} // namespace

std::optional<PictureHead> picture_head(std::string_view bytes) {
    constexpr std::string_view png("\x89PNG\r\n\x1A\n\0\0\0\x0DIHDR", 16);
    if (bytes.substr(0, png.size()) == png && bytes.size() >= 24) {
        return sized("png", big_endian(bytes, 16, 4), big_endian(bytes, 20, 4));
    }
    if (bytes.substr(0, 2) == "\xFF\xD8") {
        return jpeg_head(bytes);
    }
    return std::nullopt;
}

} // namespace vantro::service::catalogue
