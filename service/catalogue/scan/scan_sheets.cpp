// The part of Scan that handles cue sheets.
#include <algorithm>
#include <iterator>

#include <fmt/format.h>

#include <vantro/platform/log.h>

#include "service/catalogue/files/cue_sheet.h"
#include "service/catalogue/scan/reading.h"
#include "service/catalogue/text/utf8.h"

namespace vantro::service::catalogue {

// Whether the catalogue's entries match the file and the sheet beside it. The file then counts as
// seen, also if it has changed. `rows` are the names of its entries.
bool Scan::is_known(Reading &reading, const std::string &name, FileStamp stamp,
                    std::vector<std::string> &rows) {
    const auto sheet = reading.sheets.find(name);
    const int64_t digest = sheet != reading.sheets.end() ? sheet->second->digest : 0;
    if (const auto tracks = reading.tracks.find(name); tracks != reading.tracks.end()) {
        rows = std::move(tracks->second);
    }
    rows.push_back(name);
    bool any = false;
    bool same = true;
    std::erase_if(rows, [&](const std::string &row) {
        const auto known = reading.known.files.find(row);
        if (known == reading.known.files.end()) {
            return true;
        }
        const KnownFile file = known->second;
        reading.known.files.erase(known);
        any = true;
        // Without a sheet beside it, it may have one in itself.
        const bool fits = digest == 0 ? file.sheet <= 0 : file.sheet == digest;
        same = same && file.stamp == stamp && (fits || file.left_out);
        counts_.left_out += same && file.left_out;
        return false;
    });
    return any && same;
}

// Reads the sheets, which are small files, in this thread: the scan must know which audio files
// hold tracks before it visits them. Returns the error because of which the folder's entries must
// stay.
std::optional<Error> Scan::read_sheets(Reading &reading, const std::vector<std::string> &names) {
    for (const auto &[name, file] : reading.known.files) {
        if (const std::string_view of = file_of_track(name); of.size() != name.size()) {
            reading.tracks[std::string(of)].push_back(name);
        }
    }
    std::vector<std::string> songs;
    std::copy_if(names.begin(), names.end(), std::back_inserter(songs), has_audio_name);
    for (const std::string &name : names) {
        struct stat status = {};
        if (!has_cue_name(name) ||
            fstatat(dirfd(reading.directory), name.c_str(), &status, 0) != 0) {
            continue;
        }
        const std::string path = path_below(reading.folder.path, name);
        Result<CueSheet> sheet = read_cue_sheet(*top_, path, name);
        std::string wrong;
        if (sheet) {
            wrong = take_sheet(reading, name, std::move(*sheet), songs);
        } else if (sheet.error().is_passing()) {
            return sheet.error();
        } else {
            wrong = sheet.error().text();
        }
        if (!wrong.empty()) {
            reading.known.files.erase(name);
            leave_out(reading.named(name, source_), stamp_of(status), wrong);
        }
    }
    return std::nullopt;
}

// Returns the error in the sheet, or "".
std::string Scan::take_sheet(Reading &reading, const std::string &name, CueSheet sheet,
                             const std::vector<std::string> &songs) {
    const std::string *const file = file_of_sheet(sheet, name, songs);
    if (!file) {
        return fmt::format("names '{}', which is not in its folder", loggable(sheet.file));
    }
    auto &place = reading.sheets[*file];
    if (place) {
        return fmt::format("is the second sheet of '{}'", loggable(*file));
    }
    place = std::make_shared<const CueSheet>(std::move(sheet));
    return "";
}

void Scan::take_song(Done &&done) {
    const FileName &where = done.job.where;
    const auto forget = [&](const auto &gone) {
        for (const std::string &row : done.job.known) {
            if (gone(row)) {
                parts_.writer.remove_file({where.source, where.folder, row});
            }
        }
    };
    if (done.failure) {
        forget([&](const std::string &row) { return row != where.file; });
        return leave_out(where, {done.song.song.modified_ns, done.song.song.size},
                         done.failure->text());
    }
    ++counts_.read;
    if (!done.sheet_failure.empty()) {
        parts_.log(LOG_SEVERITY_WARNING,
                   fmt::format("the cue sheet of {} {}",
                               loggable(absolute(path_below(where.folder, where.file))),
                               done.sheet_failure));
    }
    if (done.tracks.empty()) {
        forget([&](const std::string &row) { return row != where.file; });
        return parts_.writer.put_song(done.song);
    }
    forget([&](const std::string &row) {
        return std::none_of(done.tracks.begin(), done.tracks.end(),
                            [&](const FoundSong &track) { return track.where.file == row; });
    });
    for (const FoundSong &track : done.tracks) {
        parts_.writer.put_song(track);
    }
}

} // namespace vantro::service::catalogue
