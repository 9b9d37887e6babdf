// The smallest valid file of each format.
#ifndef VANTRO_TESTS_SERVICE_CATALOGUE_AUDIO_FILES_H
#define VANTRO_TESTS_SERVICE_CATALOGUE_AUDIO_FILES_H

#include "tests/service/catalogue/collection.h"

namespace vantro::service::catalogue {

// Frames of silence: every field but the header's is zero.
inline std::string mp3() {
    std::string file;
    for (int i = 0; i < 20; ++i) {
        file += "\xFF\xFB\x10\xC0" + std::string(100, '\0');
    }
    return file;
}

inline std::string little_endian(uint64_t number, int bytes) {
    std::string text;
    for (int i = 0; i < bytes; ++i) {
        text += static_cast<char>(number >> (8 * i));
    }
    return text;
}

inline std::string wav() {
    const std::string data(8000, '\0');
    return "RIFF" + little_endian(36 + data.size(), 4) + "WAVEfmt " + little_endian(16, 4) +
           little_endian(1, 2) + little_endian(1, 2) + little_endian(8000, 4) +
           little_endian(16000, 4) + little_endian(2, 2) + little_endian(16, 2) + "data" +
           little_endian(data.size(), 4) + data;
}

inline std::string ogg_page(const std::string &packet, int flags, int64_t position, int number) {
    return std::string("OggS\0", 5) + static_cast<char>(flags) +
           little_endian(static_cast<uint64_t>(position), 8) + little_endian(7, 4) +
           little_endian(static_cast<uint64_t>(number), 4) + little_endian(0, 4) + '\1' +
           static_cast<char>(packet.size()) + packet;
}

inline std::string opus() {
    const std::string head = std::string("OpusHead\1\1", 10) + little_endian(0, 2) +
                             little_endian(48000, 4) + std::string(3, '\0');
    const std::string tags = "OpusTags" + little_endian(1, 4) + "v" + little_endian(1, 4) +
                             little_endian(10, 4) + "TITLE=opus";
    return ogg_page(head, 2, 0, 0) + ogg_page(tags, 0, 0, 1) + ogg_page("\xFC", 4, 48000, 2);
}

inline std::string atom(const std::string &name, const std::string &body) {
    return big_endian(static_cast<uint32_t>(body.size() + 8), 4) + name + body;
}

inline std::string m4a() {
    const std::string zero4(4, '\0');
    const std::string media_header =
        atom("mdhd", zero4 + zero4 + zero4 + big_endian(1000, 4) + big_endian(1500, 4) + zero4);
    const std::string handler = atom("hdlr", zero4 + zero4 + "soun" + std::string(13, '\0'));
    const std::string entry = atom(
        "mp4a", std::string(6, '\0') + big_endian(1, 2) + std::string(8, '\0') + big_endian(2, 2) +
                    big_endian(16, 2) + zero4 + big_endian(44100u << 16, 4));
    const std::string table = atom("stbl", atom("stsd", zero4 + big_endian(1, 4) + entry));
    const std::string track =
        atom("trak", atom("mdia", media_header + handler + atom("minf", table)));
    const std::string title = atom("\xA9nam", atom("data", big_endian(1, 4) + zero4 + "m4a"));
    const std::string tags =
        atom("udta",
             atom("meta", zero4 + atom("hdlr", zero4 + zero4 + "mdirappl" + std::string(9, '\0')) +
                              atom("ilst", title)));
    return atom("ftyp", "M4A " + zero4 + "M4A ") + atom("moov", track + tags);
}

} // namespace vantro::service::catalogue

#endif
