#include "bridges/web/cover.h"

#include <array>
#include <optional>
#include <string>
#include <utility>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include "bridges/web/api_error.h"

namespace vantro::web {
namespace {

[[noreturn]] void fail() {
    throw ApiError(404, "no_cover", "there is no cover");
}

// The file's content decides. Other files are not served: a foreign page among the music must not
// run here.
const char *type_of(std::string_view start) {
    if (start.starts_with("\xFF\xD8\xFF")) {
        return "image/jpeg";
    }
    if (start.starts_with("\x89PNG\r\n")) {
        return "image/png";
    }
    if (start.starts_with("GIF8")) {
        return "image/gif";
    }
    const bool webp = start.starts_with("RIFF") &&
                      start.substr(std::min<size_t>(8, start.size())).starts_with("WEBP");
    return webp ? "image/webp" : nullptr;
}

} // namespace

Response cover_response(std::string_view uri, std::string_view known_etag) {
    constexpr std::string_view scheme = "file://";
    if (!uri.starts_with(scheme)) {
        fail();
    }
    const std::optional<std::string> path = percent_decoded(uri.substr(scheme.size()), false);
    Descriptor file(path ? ::open(path->c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)
                         : -1);
    struct stat about {};
    std::array<char, 12> start{};
    if (!file || fstat(file.get(), &about) != 0 || !S_ISREG(about.st_mode) || about.st_size == 0) {
        fail();
    }
    const ssize_t count = pread(file.get(), start.data(), start.size(), 0);
    Response response;
    response.type = count > 0 ? type_of({start.data(), static_cast<size_t>(count)}) : nullptr;
    if (!response.type) {
        fail();
    }
    std::string etag = fmt::format("\"{:x}-{:x}-{:x}{:08x}\"", about.st_ino, about.st_size,
                                   about.st_mtim.tv_sec, about.st_mtim.tv_nsec);
    if (known_etag == etag) {
        response.status = 304;
    } else {
        response.file = std::move(file);
        response.file_size = static_cast<uint64_t>(about.st_size);
    }
    // With these headers scrolling does not fetch a cover twice, and a changed cover appears soon.
    response.headers = {{"ETag", std::move(etag)}, {"Cache-Control", "private, max-age=600"}};
    return response;
}

} // namespace vantro::web
