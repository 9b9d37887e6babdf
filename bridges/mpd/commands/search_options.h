// The arguments of commands that look for songs.
#ifndef VANTRO_BRIDGES_MPD_COMMANDS_SEARCH_OPTIONS_H
#define VANTRO_BRIDGES_MPD_COMMANDS_SEARCH_OPTIONS_H

#include <optional>
#include <string>
#include <vector>

#include "bridges/mpd/command.h"
#include "bridges/mpd/filter.h"
#include "bridges/mpd/tags.h"
#include "bridges/mpd/text.h"

namespace vantro::mpd {

// The arguments after the filter.
struct SearchOptions {
    struct Sort {
        Tag tag = Tag::absent;
        bool modified = false; // By the time of change instead.
        bool descending = false;
    };

    Filter filter;
    std::optional<Sort> sort;
    Range window;
    std::vector<Tag> groups;
    std::string position; // The place at which songs are added; empty: the end.

    // @throws Ack.
    static SearchOptions parse(Arguments arguments, Filter::Case letters);
};

// @throws Ack if the protocol has no such tag.
Tag need_tag(const std::string &name);

} // namespace vantro::mpd

#endif
