// Numbers in a file's bytes, most significant byte first.
#ifndef VANTRO_SERVICE_CATALOGUE_FILES_BIG_ENDIAN_H
#define VANTRO_SERVICE_CATALOGUE_FILES_BIG_ENDIAN_H

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vantro::service::catalogue {

// Reads one number after the other; zeros after the end of the bytes.
class BigEndianReader {
  public:
    explicit BigEndianReader(std::string_view bytes, size_t at = 0) : bytes_(bytes), at_(at) {}

    // Of at most eight bytes.
    uint64_t next(size_t bytes) {
        uint64_t value = 0;
        for (; bytes > 0; --bytes, ++at_) {
            value = value << 8 |
                    (at_ < bytes_.size() ? static_cast<unsigned char>(bytes_[at_]) : uint64_t{0});
        }
        return value;
    }
    size_t at() const { return at_; }

  private:
    std::string_view bytes_;
    size_t at_;
};

} // namespace vantro::service::catalogue

#endif
