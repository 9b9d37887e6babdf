// One writer and one reader of packed bytes. Every integer is copied as bytes, since only a record
// that begins an array is sure to be aligned.
#ifndef VANTRO_RECORDS_PACKED_BYTES_H
#define VANTRO_RECORDS_PACKED_BYTES_H

#include <bit>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace vantro::records {

// Sizes of packed arrays are ints at the boundary, so nothing larger is ever written.
inline constexpr size_t packed_bytes_max = INT_MAX;

// Packed integers are little-endian, and so is every host, so they are copied unchanged.
static_assert(std::endian::native == std::endian::little);

// Length word of an absent string.
inline constexpr uint32_t absent_length = UINT32_MAX;

class PackedWriter {
  public:
    explicit PackedWriter(void *buffer) : start_(static_cast<unsigned char *>(buffer)) {}

    // Each returns false, and writes nothing, if the array would pass packed_bytes_max.
    bool put32(uint32_t value) { return put(value); }

    bool put64(uint64_t value) { return put(value); }

    bool put_string(const char *text) {
        if (!text) {
            return put32(absent_length);
        }
        const size_t length = std::strlen(text);
        if (length > packed_bytes_max || !has_room(4 + length)) {
            return false;
        }
        put32(static_cast<uint32_t>(length));
        std::memcpy(start_ + written_, text, length);
        written_ += length;
        return true;
    }

    size_t written() const { return written_; }

  private:
    bool has_room(size_t bytes) const { return bytes <= packed_bytes_max - written_; }

    template <class Integer>
    bool put(Integer value) {
        if (!has_room(sizeof value)) {
            return false;
        }
        std::memcpy(start_ + written_, &value, sizeof value);
        written_ += sizeof value;
        return true;
    }

    unsigned char *start_;
    size_t written_ = 0;
};

class PackedReader {
  public:
    PackedReader(const void *buffer, size_t size)
        : at_(static_cast<const unsigned char *>(buffer)), left_(size) {}

    // Each returns false, and does not change `value`, if the bytes end too early.
    bool get32(uint32_t &value) { return get(value); }

    bool get64(uint64_t &value) { return get(value); }

    // A string of length 0 or less is absent. Also false if there is no memory for the copy;
    // short_of_memory() is then true.
    bool get_string(char *&text) {
        uint32_t word = 0;
        if (!get32(word)) {
            return false;
        }
        if (static_cast<int32_t>(word) <= 0) {
            text = nullptr;
            return true;
        }
        // Checked before the allocation: a false length must not cost memory.
        if (word > left_) {
            return false;
        }
        char *copy = static_cast<char *>(std::malloc(size_t{word} + 1));
        if (!copy) {
            short_of_memory_ = true;
            return false;
        }
        std::memcpy(copy, at_, word);
        copy[word] = '\0';
        text = copy;
        at_ += word;
        left_ -= word;
        return true;
    }

    bool at_end() const { return left_ == 0; }

    bool short_of_memory() const { return short_of_memory_; }

  private:
    template <class Integer>
    bool get(Integer &value) {
        if (left_ < sizeof value) {
            return false;
        }
        std::memcpy(&value, at_, sizeof value);
        at_ += sizeof value;
        left_ -= sizeof value;
        return true;
    }

    const unsigned char *at_;
    size_t left_;
    bool short_of_memory_ = false;
};

} // namespace vantro::records

#endif
