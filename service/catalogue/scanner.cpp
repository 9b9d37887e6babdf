#include "service/catalogue/scanner.h"

#include <algorithm>
#include <system_error>
#include <tuple>
#include <utility>

#include <fmt/format.h>

#include "service/catalogue/tags.h"
#include "service/catalogue/text.h"

namespace vantro {

namespace fs = std::filesystem;

namespace {

bool before_by_name(const fs::path &a, const fs::path &b) {
    return natural_compare(a.filename().native(), b.filename().native()) < 0;
}

// Where nothing is said the first disc is meant, but a track without number follows the others.
bool before_by_place(const Track &a, const Track &b) {
    const auto place = [](const Track &track) {
        return std::make_tuple(std::max(track.disc, 1), track.number == 0, track.number);
    };
    const auto left = place(a);
    const auto right = place(b);
    return left != right ? left < right : natural_compare(a.path, b.path) < 0;
}

} // namespace

Scanner::Scanner(Complain complain, const std::atomic<bool> &stop)
    : complain_(std::move(complain)), stop_(stop) {}

void Scanner::read(const fs::path &directory, int32_t source, std::vector<Track> &tracks) {
    root_ = directory;
    source_ = source;
    read_directory(directory, 0, tracks);
}

void Scanner::read_directory(const fs::path &directory, int depth, std::vector<Track> &tracks) {
    if (depth > directory_depth_max)
        return leave_out(directory, "lies too deep");
    std::error_code error;
    std::vector<fs::path> directories;
    std::vector<Track> found;
    fs::directory_iterator entry(directory, error);
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
        if (stop_)
            return;
        std::error_code ignored;
        if (entry->symlink_status(ignored).type() == fs::file_type::directory)
            directories.push_back(entry->path());
        else
            read_file(entry->path(), found);
    }
    if (error)
        leave_out(directory, error.message());

    std::sort(found.begin(), found.end(), before_by_place);
    std::move(found.begin(), found.end(), std::back_inserter(tracks));
    std::sort(directories.begin(), directories.end(), before_by_name);
    for (const fs::path &each : directories)
        read_directory(each, depth + 1, tracks);
}

void Scanner::read_file(const fs::path &file, std::vector<Track> &tracks) {
    if (!has_audio_name(file.native()))
        return;
    // Looked at before it is opened: opening a named pipe would wait for its writer.
    std::error_code error;
    const fs::file_status status = fs::status(file, error);
    if (status.type() == fs::file_type::directory)
        return;
    if (status.type() != fs::file_type::regular)
        return leave_out(file, error ? error.message() : "is not a regular file");

    Track track;
    if (const char *why = read_tags(file.native(), track))
        return leave_out(file, why);
    track.path = file.native();
    track.source = source_;
    track.id = clean_text(fmt::format("{}/{}", source_, file.lexically_relative(root_).native()),
                          track_id_max);
    if (track.title.empty())
        track.title = clean_text(file.stem().native(), tag_text_max);
    tracks.push_back(std::move(track));
}

void Scanner::leave_out(const fs::path &what, std::string_view why) {
    complain_(fmt::format("left out: {}: {}", clean_text(what.native(), track_id_max), why));
}

} // namespace vantro
