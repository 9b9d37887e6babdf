#include "service/catalogue/files/flac_length.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "service/catalogue/files/big_endian.h"

namespace vantro::service::catalogue {

namespace {

// Two whole frames of the largest kind in use: eight channels, 24 bits, 4608 samples.
constexpr long tail_bytes = 256 * 1024;

struct Frame {
    bool by_sample = false; // `number` counts samples, else frames
    int64_t number = 0;
    int64_t samples = 0;
};

uint8_t crc8(std::string_view bytes) {
    unsigned sum = 0;
    for (const char byte : bytes) {
        sum ^= static_cast<unsigned char>(byte);
        for (int bit = 0; bit < 8; ++bit) {
            sum = (sum & 0x80) != 0 ? (sum << 1 ^ 0x07) & 0xFF : sum << 1;
        }
    }
    return static_cast<uint8_t>(sum);
}

// A frame or sample number, coded like a UTF-8 character in up to seven bytes. -1 if the bytes are
// not such a number.
int64_t coded_number(BigEndianReader &fields) {
    const auto lead = static_cast<uint32_t>(fields.next(1));
    int more = 0;
    while (more < 7 && (lead & (0x80u >> more)) != 0) {
        ++more;
    }
    if (more == 1) {
        return -1;
    }
    int64_t number = more == 0 ? lead : lead & (0x7Fu >> more);
    for (int i = 1; i < more; ++i) {
        const auto next = static_cast<uint32_t>(fields.next(1));
        if ((next & 0xC0) != 0x80) {
            return -1;
        }
        number = number << 6 | (next & 0x3F);
    }
    return number;
}

int64_t block_size(uint64_t code, BigEndianReader &fields) {
    switch (code) {
    case 0:
        return 0;
    case 1:
        return 192;
    case 6:
        return static_cast<int64_t>(fields.next(1)) + 1;
    case 7:
        return static_cast<int64_t>(fields.next(2)) + 1;
    default:
        return code < 6 ? int64_t{576} << (code - 2) : int64_t{256} << (code - 8);
    }
}

// The header of a frame at the beginning of `bytes`.
std::optional<Frame> frame_at(std::string_view bytes) {
    BigEndianReader fields(bytes);
    const uint64_t sync = fields.next(2);
    const uint64_t sizes = fields.next(1);
    const uint64_t channels = fields.next(1);
    if ((sync & 0xFFFE) != 0xFFF8 || (channels & 1) != 0) {
        return std::nullopt;
    }
    Frame frame;
    frame.by_sample = (sync & 1) != 0;
    frame.number = coded_number(fields);
    frame.samples = block_size(sizes >> 4, fields);
    const uint64_t rate = sizes & 15;
    fields.next(rate == 12 ? 1 : rate == 13 || rate == 14 ? 2 : 0);
    const size_t size = fields.at();
    if (frame.number < 0 || frame.samples == 0 || rate == 15 || size >= bytes.size() ||
        crc8(bytes.substr(0, size)) != fields.next(1)) {
        return std::nullopt;
    }
    return frame;
}

std::string_view text_of(const TagLib::ByteVector &bytes) {
    return {bytes.data(), bytes.size()};
}

// Samples of every frame except the last, from the header of the file; 0 if it has no header.
int64_t common_block_size(FileStream &stream) {
    stream.seek(0);
    TagLib::ByteVector head = stream.readBlock(10);
    long begin = 0;
    if (text_of(head).substr(0, 3) == "ID3") {
        for (unsigned i = 6; i < 10; ++i) {
            begin = begin << 7 | (i < head.size() ? head[i] & 0x7F : 0);
        }
        begin += 10;
    }
    stream.seek(begin);
    head = stream.readBlock(12);
    if (text_of(head).substr(0, 4) != "fLaC" || head.size() < 12) {
        return 0;
    }
    return static_cast<int64_t>(BigEndianReader(text_of(head), 10).next(2));
}

} // namespace

int64_t flac_samples(FileStream &stream) {
    const int64_t block = common_block_size(stream);
    stream.seek(std::max(stream.length() - tail_bytes, 0l));
    const TagLib::ByteVector read = stream.readBlock(tail_bytes);
    const std::string_view tail = text_of(read);
    // Sound can look like a header. Two headers in a row, counted from the end, are real ones.
    std::optional<Frame> last;
    for (size_t at = tail.size(); at-- > 0;) {
        if (tail[at] != '\xFF') {
            continue;
        }
        const std::optional<Frame> frame = frame_at(tail.substr(at));
        if (!frame) {
            continue;
        }
        const int64_t step = frame->by_sample ? frame->samples : 1;
        const bool first = frame->number == 0 && !last;
        if (first ||
            (last && frame->by_sample == last->by_sample && frame->number + step == last->number)) {
            const Frame &end = first ? *frame : *last;
            return (end.by_sample ? end.number : end.number * block) + end.samples;
        }
        last = frame;
    }
    return 0;
}

} // namespace vantro::service::catalogue
