// A filter for songs.
#ifndef VANTRO_BRIDGES_MPD_FILTER_H
#define VANTRO_BRIDGES_MPD_FILTER_H

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "bridges/mpd/pattern.h"
#include "bridges/mpd/song.h"

namespace vantro::mpd {

// Deepest nesting of expressions: parsing and matching recurse once a level.
constexpr int filter_depth_max = 32;
// Most conditions of one filter.
constexpr size_t filter_conditions_max = 256;
// Most regular expressions of one filter. Each may take as long as thousands of other conditions.
constexpr size_t filter_patterns_max = 8;

// Tags that lists of the catalogue contain, with the same values as the song itself.
inline bool is_listed(Tag tag) {
    return tag == Tag::title || tag == Tag::artist || tag == Tag::album || tag == Tag::genre ||
           tag == Tag::absent;
}

class Filter {
  public:
    enum class Case { as_written, folded };

    // Matches everything.
    Filter() = default;

    // From arguments: expressions in parentheses, and pairs of a tag and its value, all of which
    // must hold. If case is ignored, a pair matches if the value is a part of the tag.
    // @throws Ack.
    static Filter parse(std::span<const std::string> words, Case letters);

    bool matches(const Song &song) const {
        return judge(song, Knowledge::everything) == Truth::yes;
    }

    // Whether a song matches.
    enum class Truth { no, yes, unknown };
    // How much of a song is filled in: everything, or only the data in lists of the catalogue,
    // which are `listed_tags` and the duration.
    enum class Knowledge { everything, listed };

    Truth judge(const Song &song, Knowledge knowledge) const;

    bool empty() const { return conditions_.empty(); }

    // Whether one song may take milliseconds, so that the time must be checked after each song.
    bool is_slow() const { return patterns_ > 0; }

    // The text that the tag of every match equals, if the filter demands one.
    std::optional<std::string> demanded(Tag tag) const;

    // The URI that every match has, if the filter demands one.
    std::optional<std::string> demanded_uri() const;

    // A directory that contains every match, if the filter requires one.
    std::optional<std::string> demanded_base() const;

  private:
    enum class Subject { tag, any, file, base, modified_since, audio_format, group };
    enum class Test { equal, contains, starts_with, pattern };

    struct Condition {
        Subject subject = Subject::tag;
        Test test = Test::equal;
        bool negated = false;
        Tag tag = Tag::artist;
        std::string value; // Folded if case is ignored.
        int64_t time = 0;
        std::vector<Condition> parts; // Of a group: all must hold.
        std::shared_ptr<const Pattern> pattern;
    };

    class Parser;

    static Truth judge_all(const std::vector<Condition> &conditions, const Filter &filter,
                           const Song &song, Knowledge knowledge);
    Truth judge(const Condition &condition, const Song &song, Knowledge knowledge) const;
    template <typename Wanted>
    std::optional<std::string> demanded_where(const Wanted &wanted) const;
    bool holds_file(const Condition &condition, const Song &song) const;
    bool holds_any(const Condition &condition, const Song &song) const;
    bool holds_text(const Condition &condition, const std::string &text) const;
    static void set_subject(Condition &condition, std::string_view name);
    void set_value(Condition &condition, std::string value);

    Case letters_ = Case::as_written;
    size_t patterns_ = 0;
    std::vector<Condition> conditions_;
};

} // namespace vantro::mpd

#endif
