// Covers, in pieces.
#include <algorithm>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include "bridges/mpd/ack.h"
#include "bridges/mpd/catalogue.h"
#include "bridges/mpd/client.h"
#include "bridges/mpd/commands/handlers.h"
#include "bridges/mpd/partition.h"
#include "bridges/mpd/text.h"
#include "bridges/sockets/descriptor.h"

namespace vantro::mpd {
namespace {

int digit_of(char c) {
    constexpr std::string_view digits = "0123456789abcdef";
    const char lower = c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c;
    const size_t at = digits.find(lower);
    return at == std::string_view::npos ? -1 : static_cast<int>(at);
}

// The path that a "file:" URI names; empty if it names none.
std::string path_of(std::string_view uri) {
    constexpr std::string_view scheme = "file://";
    if (!uri.starts_with(scheme)) {
        return "";
    }
    uri.remove_prefix(scheme.size());
    std::string path;
    for (size_t at = 0; at < uri.size(); ++at) {
        const bool escaped = uri[at] == '%' && at + 2 < uri.size() && digit_of(uri[at + 1]) >= 0 &&
                             digit_of(uri[at + 2]) >= 0;
        if (escaped) {
            path += static_cast<char>(digit_of(uri[at + 1]) * 16 + digit_of(uri[at + 2]));
            at += 2;
        } else {
            path += uri[at];
        }
    }
    return path;
}

std::string_view type_of(std::string_view start) {
    return start.starts_with("\xFF\xD8\xFF") ? "image/jpeg"
           : start.starts_with("\x89PNG")    ? "image/png"
                                             : "";
}

// The service has one cover for a song, from the file or from its folder. @return whether there is
// one.
bool tell_cover(Context &context, Arguments arguments) {
    const Catalogue::Place place = context.catalogue.find(context.partition.player(), arguments[0]);
    const uint32_t offset = parse_unsigned(arguments[1]);
    const std::string path = place.song ? path_of(place.song->artwork) : "";
    const sockets::Descriptor file(
        path.empty() ? -1 : ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat about {};
    if (!file || fstat(file.get(), &about) != 0 || !S_ISREG(about.st_mode)) {
        return false;
    }
    if (offset > about.st_size) {
        throw Ack(AckCode::argument, "the cover ends before that offset");
    }
    std::string start(8, '\0');
    const ssize_t begun = pread(file.get(), start.data(), start.size(), 0);
    start.resize(static_cast<size_t>(std::max<ssize_t>(begun, 0)));
    std::string piece(context.client.binary_limit, '\0');
    const ssize_t count = pread(file.get(), piece.data(), piece.size(), offset);
    if (count < 0) {
        throw Ack(AckCode::system, "the cover cannot be read");
    }
    context.reply.number("size", about.st_size);
    if (const std::string_view type = type_of(start); !type.empty()) {
        context.reply.pair("type", type);
    }
    context.reply.number("binary", count);
    context.reply.raw(std::string_view(piece).substr(0, static_cast<size_t>(count)));
    context.reply.raw("\n");
    return true;
}

} // namespace

TaskPtr run_albumart(Context &context, Arguments arguments) {
    if (!tell_cover(context, arguments)) {
        throw Ack(AckCode::no_exist, "there is no cover");
    }
    return nullptr;
}

// The answer is empty if there is no picture.
TaskPtr run_readpicture(Context &context, Arguments arguments) {
    tell_cover(context, arguments);
    return nullptr;
}

} // namespace vantro::mpd
