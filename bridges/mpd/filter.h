// Which songs a client wants.
#ifndef VANTRO_BRIDGES_MPD_FILTER_H
#define VANTRO_BRIDGES_MPD_FILTER_H

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "bridges/mpd/song.h"

namespace vantro::mpd {

// Expressions may be nested so deeply: parsing and matching call themselves once a level.
constexpr int filter_depth_max = 32;
// Conditions of one filter.
constexpr size_t filter_conditions_max = 256;

// Tags that lists of the catalogue come with, exactly as a song's own values are.
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
    // must hold. A pair without regard to case matches where the value is a part of the tag.
    // @throws Ack.
    static Filter parse(std::span<const std::string> words, Case letters);

    bool matches(const Song &song) const {
        return judge(song, Knowledge::everything) == Truth::yes;
    }

    // What can be said of a song.
    enum class Truth { no, yes, unknown };
    // How much of a song is filled in: all, or only what lists of the catalogue come with, which
    // is `listed_tags` and the duration.
    enum class Knowledge { everything, listed };

    Truth judge(const Song &song, Knowledge knowledge) const;

    bool empty() const { return conditions_.empty(); }

    // A text every match has as the whole of that tag, as far as the filter demands one.
    std::optional<std::string> demanded(Tag tag) const;

    // The URI that every match has, as far as the filter demands one.
    std::optional<std::string> demanded_uri() const;

    // A directory below which every match lies, as far as the filter demands one.
    std::optional<std::string> demanded_base() const;

  private:
    enum class Subject { tag, any, file, base, modified_since, audio_format, group };
    enum class Test { equal, contains, starts_with };

    struct Condition {
        Subject subject = Subject::tag;
        Test test = Test::equal;
        bool negated = false;
        Tag tag = Tag::artist;
        std::string value; // Folded where case does not matter.
        int64_t time = 0;
        std::vector<Condition> parts; // Of a group: all must hold.
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
    void set_value(Condition &condition, std::string value) const;

    Case letters_ = Case::as_written;
    std::vector<Condition> conditions_;
};

} // namespace vantro::mpd

#endif
