#include "bridges/web/page_files.h"

#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

#include <fmt/format.h>
#include <nettle/sha2.h>

#include "bridges/web/api_error.h"

namespace vantro::web {
namespace {

constexpr std::array<std::pair<const char *, const char *>, 7> types = {{
    {".html", "text/html; charset=utf-8"},
    {".css", "text/css; charset=utf-8"},
    {".js", "text/javascript; charset=utf-8"},
    {".json", "application/json"},
    {".svg", "image/svg+xml"},
    {".png", "image/png"},
    {".webmanifest", "application/manifest+json"},
}};

const char *type_of(const std::string &extension) {
    for (const auto &[known, type] : types) {
        if (extension == known) {
            return type;
        }
    }
    return nullptr;
}

std::string etag_of(const std::string &bytes) {
    sha256_ctx context{};
    std::array<uint8_t, 8> digest{};
    sha256_init(&context);
    sha256_update(&context, bytes.size(), reinterpret_cast<const uint8_t *>(bytes.data()));
    sha256_digest(&context, digest.size(), digest.data());
    return fmt::format("\"{:02x}\"", fmt::join(digest, ""));
}

} // namespace

PageFiles::PageFiles(const std::string &folder) {
    std::error_code error;
    for (const auto &entry : std::filesystem::directory_iterator(folder, error)) {
        const char *const type = type_of(entry.path().extension());
        if (!type || !entry.is_regular_file(error)) {
            continue;
        }
        std::ifstream stream(entry.path(), std::ios::binary);
        std::string bytes{std::istreambuf_iterator<char>(stream), {}};
        std::string etag = etag_of(bytes);
        files_[entry.path().filename()] = {type, std::move(etag),
                                           std::make_shared<const std::string>(std::move(bytes))};
    }
    if (!files_.contains("index.html")) {
        throw std::runtime_error(fmt::format("there is no page in {}", folder));
    }
}

Response PageFiles::get(const std::string &name, std::string_view known_etag) const {
    const auto found = files_.find(name);
    if (found == files_.end()) {
        throw ApiError(404, "not_found", "there is no such page");
    }
    Response response;
    response.type = found->second.type;
    response.headers = {{"ETag", found->second.etag}, {"Cache-Control", "no-cache"}};
    if (known_etag == found->second.etag) {
        response.status = 304;
    } else {
        response.body = found->second.bytes;
    }
    return response;
}

} // namespace vantro::web
