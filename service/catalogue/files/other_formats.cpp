#include "service/catalogue/files/other_formats.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "service/catalogue/files/big_endian.h"

namespace vantro::service::catalogue {

namespace {

// The number of frames that shows whether the bit rate is constant.
constexpr int frames_looked_at = 500;

// Most chunks or elements of one file that are read.
constexpr int pieces_max = 1000;

std::string bytes_at(FileStream &stream, int64_t at, size_t size) {
    stream.seek(static_cast<long>(at));
    const TagLib::ByteVector read = stream.readBlock(size);
    return {read.data(), read.size()};
}

int64_t ms_of(double seconds) {
    constexpr double longest = INT32_MAX;
    return seconds > 0 && seconds * 1000 < longest ? static_cast<int64_t>(seconds * 1000) : 0;
}

double number_of(uint64_t bits, size_t bytes) {
    if (bytes == 4) {
        const auto narrow = static_cast<uint32_t>(bits);
        float value = 0;
        std::memcpy(&value, &narrow, sizeof value);
        return value;
    }
    double value = 0;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

// Bytes before the audio data: some programs put a tag of another format there.
int64_t tag_bytes(FileStream &stream) {
    const std::string head = bytes_at(stream, 0, 10);
    if (head.substr(0, 3) != "ID3" || head.size() < 10) {
        return 0;
    }
    int64_t size = 0;
    for (size_t i = 6; i < 10; ++i) {
        size = size << 7 | (head[i] & 0x7F);
    }
    return size + 10;
}

// Every frame states its length. The average of the first frames is used for all.
std::optional<OtherAudio> read_adts(FileStream &stream) {
    static constexpr int rates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                    22050, 16000, 12000, 11025, 8000,  7350};
    OtherAudio audio;
    const int64_t begin = tag_bytes(stream);
    int64_t at = begin;
    int frames = 0;
    for (; frames < frames_looked_at; ++frames) {
        const std::string bytes = bytes_at(stream, at, 7);
        const uint64_t header = BigEndianReader(bytes).next(7);
        const uint64_t rate = header >> 34 & 15;
        const auto length = static_cast<int64_t>(header >> 13 & 0x1FFF);
        if (bytes.size() < 7 || (header >> 40 & 0xFFF6) != 0xFFF0 || rate >= std::size(rates) ||
            length < 7) {
            break;
        }
        audio.sample_rate = rates[rate];
        audio.channels = static_cast<int64_t>(header >> 30 & 7);
        at += length;
    }
    const bool whole = at == stream.length();
    if (frames == 0 || (frames == 1 && !whole)) {
        return std::nullopt;
    }
    constexpr double samples_a_frame = 1024;
    const double sound = static_cast<double>(stream.length() - begin);
    const double all = frames * sound / static_cast<double>(at - begin);
    audio.codec = "aac";
    audio.duration_ms = ms_of(all * samples_a_frame / static_cast<double>(audio.sample_rate));
    return audio;
}

// Every frame has the length of the first.
std::optional<OtherAudio> read_ac3(FileStream &stream) {
    static constexpr int kilobits[] = {32,  40,  48,  56,  64,  80,  96,  112, 128, 160,
                                       192, 224, 256, 320, 384, 448, 512, 576, 640};
    static constexpr int rates[] = {48000, 44100, 32000};
    const std::string head = bytes_at(stream, 0, 8);
    BigEndianReader fields(head);
    if (head.size() < 8 || fields.next(2) != 0x0B77) {
        return std::nullopt;
    }
    fields.next(2);
    const uint64_t sizes = fields.next(1);
    const uint64_t version = fields.next(1) >> 3;
    const uint64_t rate = sizes >> 6;
    const uint64_t code = (sizes & 63) / 2;
    if (version > 10 || rate > 2 || code >= std::size(kilobits)) {
        return std::nullopt;
    }
    OtherAudio audio;
    audio.codec = "ac3";
    audio.sample_rate = rates[rate];
    audio.duration_ms = stream.length() * 8 / kilobits[code];
    return audio;
}

std::optional<OtherAudio> read_au(FileStream &stream) {
    const std::string head = bytes_at(stream, 0, 24);
    if (head.substr(0, 4) != ".snd" || head.size() < 24) {
        return std::nullopt;
    }
    BigEndianReader fields(head, 4);
    const auto begin = static_cast<int64_t>(fields.next(4));
    const auto stated = static_cast<int64_t>(fields.next(4));
    const uint64_t encoding = fields.next(4);
    OtherAudio audio;
    audio.codec = "pcm";
    audio.sample_rate = static_cast<int64_t>(fields.next(4));
    audio.channels = static_cast<int64_t>(fields.next(4));
    const int64_t width = encoding == 1 || encoding == 2 || encoding == 27 ? 1
                          : encoding >= 3 && encoding <= 5 ? static_cast<int64_t>(encoding) - 1
                          : encoding == 6                  ? 4
                          : encoding == 7                  ? 8
                                                           : 0;
    const int64_t size = std::min(stated, stream.length() - begin);
    if (width == 0 || audio.sample_rate == 0 || audio.channels == 0) {
        return std::nullopt;
    }
    // All three numbers come from the file: their product may not fit 64 bits.
    const double bytes_a_second = static_cast<double>(width) * static_cast<double>(audio.channels) *
                                  static_cast<double>(audio.sample_rate);
    audio.duration_ms = ms_of(static_cast<double>(size) / bytes_a_second);
    return audio;
}

std::optional<OtherAudio> read_caf(FileStream &stream) {
    if (bytes_at(stream, 0, 4) != "caff") {
        return std::nullopt;
    }
    OtherAudio audio;
    double rate = 0;
    double packet_bytes = 0;
    double packet_frames = 0;
    double frames = 0;
    int64_t at = 8;
    for (int i = 0; i < pieces_max && at + 12 <= stream.length(); ++i) {
        const std::string bytes = bytes_at(stream, at, 12 + 32);
        const std::string kind = bytes.substr(0, 4);
        BigEndianReader fields(bytes, 4);
        auto size = static_cast<int64_t>(fields.next(8));
        if (size < 0 || size > stream.length() - at - 12) {
            size = stream.length() - at - 12; // an unfinished recording: up to the end of the file
        }
        if (kind == "desc") {
            rate = number_of(fields.next(8), 8);
            fields.next(8);
            packet_bytes = static_cast<double>(fields.next(4));
            packet_frames = static_cast<double>(fields.next(4));
            audio.channels = static_cast<int64_t>(fields.next(4));
        } else if (kind == "pakt") {
            fields.next(8);
            frames = static_cast<double>(fields.next(8));
        } else if (kind == "data" && packet_bytes > 0 && frames <= 0) {
            frames = static_cast<double>(size - 4) / packet_bytes * packet_frames;
        }
        at += 12 + size;
    }
    if (!(rate > 0) || !(rate < 10'000'000)) {
        return std::nullopt;
    }
    audio.sample_rate = static_cast<int64_t>(rate);
    audio.duration_ms = ms_of(frames / rate);
    return audio;
}

// An element of Matroska: its id, and the place of its content.
struct Element {
    uint64_t id = 0;
    int64_t begin = 0;
    int64_t end = 0;
};

std::optional<Element> element_at(FileStream &stream, int64_t at, int64_t end) {
    const std::string bytes = bytes_at(stream, at, 12);
    size_t used = 0;
    // The position of the first set bit gives the number of bytes. That bit is part of an id, but
    // not of a size.
    const auto number = [&](bool keep_mark) {
        const auto lead = used < bytes.size() ? static_cast<unsigned char>(bytes[used]) : 0u;
        size_t size = 1;
        while (size <= 8 && (lead & (0x100u >> size)) == 0) {
            ++size;
        }
        if (size > 8) {
            used = bytes.size() + 1;
            return uint64_t{0};
        }
        uint64_t value = BigEndianReader(bytes, used).next(size);
        used += size;
        const uint64_t mark = uint64_t{1} << (7 * size);
        const bool unknown = !keep_mark && value == 2 * mark - 1;
        return keep_mark ? value : unknown ? UINT64_MAX : value - mark;
    };
    Element element;
    element.id = number(true);
    const uint64_t size = number(false);
    if (used > bytes.size()) {
        return std::nullopt;
    }
    element.begin = at + static_cast<int64_t>(used);
    const int64_t rest = std::max<int64_t>(end - element.begin, 0);
    element.end = element.begin + static_cast<int64_t>(std::min(size, static_cast<uint64_t>(rest)));
    return element;
}

std::optional<OtherAudio> read_matroska(FileStream &stream) {
    constexpr uint64_t file_header = 0x1A45DFA3;
    constexpr uint64_t segment = 0x18538067;
    constexpr uint64_t info = 0x1549A966;
    constexpr uint64_t unit_ns = 0x2AD7B1;
    constexpr uint64_t duration = 0x4489;
    constexpr uint64_t title = 0x7BA9;
    OtherAudio audio;
    double unit = 1e6;
    double units = 0;
    int64_t end = stream.length();
    int64_t at = 0;
    for (int i = 0; i < pieces_max && at < end; ++i) {
        const std::optional<Element> element = element_at(stream, at, end);
        if (!element || (i == 0 && element->id != file_header)) {
            break;
        }
        const auto size =
            static_cast<size_t>(std::min<int64_t>(element->end - element->begin, 4096));
        at = element->end;
        if (element->id == segment) {
            at = element->begin;
        } else if (element->id == info) {
            at = element->begin;
            end = element->end; // nothing after it is needed
        } else if (element->id == unit_ns && size <= 8) {
            unit = static_cast<double>(
                BigEndianReader(bytes_at(stream, element->begin, size)).next(size));
        } else if (element->id == duration && (size == 4 || size == 8)) {
            const std::string bytes = bytes_at(stream, element->begin, size);
            units = number_of(BigEndianReader(bytes).next(size), size);
        } else if (element->id == title) {
            audio.title = bytes_at(stream, element->begin, size);
        }
    }
    audio.duration_ms = ms_of(units * unit / 1e9);
    return audio;
}

} // namespace

bool has_other_name(std::string_view name) {
    const size_t dot = name.rfind('.');
    std::string ending(dot == std::string_view::npos ? "" : name.substr(dot + 1));
    std::transform(ending.begin(), ending.end(), ending.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    static constexpr std::string_view endings[] = {"aac", "ac3", "mka", "webm", "caf", "au"};
    return std::find(std::begin(endings), std::end(endings), ending) != std::end(endings);
}

std::optional<OtherAudio> read_other(FileStream &stream) {
    for (const auto read : {read_adts, read_ac3, read_au, read_caf, read_matroska}) {
        std::optional<OtherAudio> audio = read(stream);
        if (audio && audio->duration_ms > 0 && audio->duration_ms <= INT32_MAX) {
            return audio;
        }
    }
    return std::nullopt;
}

} // namespace vantro::service::catalogue
