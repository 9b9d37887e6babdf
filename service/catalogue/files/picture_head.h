// The format and size of a picture, from its first bytes.
#ifndef VANTRO_SERVICE_CATALOGUE_FILES_PICTURE_HEAD_H
#define VANTRO_SERVICE_CATALOGUE_FILES_PICTURE_HEAD_H

#include <cstdint>
#include <optional>
#include <string_view>

namespace vantro::service::catalogue {

struct PictureHead {
    const char *ending = nullptr;
    int32_t width = 0;
    int32_t height = 0;
};
// Nothing if the bytes are not the beginning of a JPEG or PNG picture. Reads the headers only.
std::optional<PictureHead> picture_head(std::string_view bytes);

} // namespace vantro::service::catalogue

#endif
