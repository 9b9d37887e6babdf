// Lines of an MPD client: words, and filters made of them.
//
// Each line of the input is one of a client. What a list shows of a song must never contradict the
// complete song.
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "bridges/mpd/ack.h"
#include "bridges/mpd/filter.h"
#include "bridges/mpd/line_parser.h"
#include "fuzz/support.h"

using namespace vantro::mpd;
using vantro::fuzz::require;

namespace {

Song listed_song() {
    Song song;
    song.tags[index_of(Tag::title)] = "One";
    song.tags[index_of(Tag::artist)] = "R\xC3\x89"
                                       "d";
    song.tags[index_of(Tag::album)] = "The 'Way'";
    return song;
}

Song whole_song() {
    Song song = listed_song();
    song.uri = "music/Red/1.flac";
    song.modified = 1'000'000'000;
    song.tags[index_of(Tag::date)] = "2001";
    song.tags[index_of(Tag::album_artist)] = "Green";
    return song;
}

void try_filter(const std::vector<std::string> &words, Filter::Case letters) {
    const Filter filter = Filter::parse(words, letters);
    const auto early = filter.judge(listed_song(), Filter::Knowledge::listed);
    const auto late = filter.judge(whole_song(), Filter::Knowledge::everything);
    require(late != Filter::Truth::unknown);
    require(early == Filter::Truth::unknown || early == late);
    if (const auto title = filter.demanded(Tag::title); title && late == Filter::Truth::yes) {
        require(*title == "One" || *title == "one");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t length) {
    std::string_view rest(reinterpret_cast<const char *>(data), length);
    while (!rest.empty()) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(line.size() == rest.size() ? line.size() : line.size() + 1);
        std::vector<std::string> words;
        try {
            words = parse_line(line);
        } catch (const Ack &) {
            continue;
        }
        require(!words.empty() && words.size() <= words_max);
        words.erase(words.begin());
        for (const Filter::Case letters : {Filter::Case::as_written, Filter::Case::folded}) {
            try {
                try_filter(words, letters);
            } catch (const Ack &) {
            }
        }
    }
    return 0;
}
