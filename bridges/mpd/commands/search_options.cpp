#include "bridges/mpd/commands/search_options.h"

#include <fmt/format.h>

#include "bridges/mpd/ack.h"

namespace vantro::mpd {
namespace {

// No useful request groups by more tags.
constexpr size_t groups_max = 8;

SearchOptions::Sort parse_sort(std::string_view name) {
    SearchOptions::Sort sort;
    if (name.starts_with('-')) {
        sort.descending = true;
        name.remove_prefix(1);
    }
    if (same_name(name, "Last-Modified")) {
        sort.modified = true;
    } else {
        sort.tag = need_tag(std::string(name));
    }
    return sort;
}

} // namespace

Tag need_tag(const std::string &name) {
    const std::optional<Tag> tag = tag_named(name);
    if (!tag) {
        throw Ack(AckCode::argument, fmt::format("unknown tag \"{}\"", name));
    }
    return *tag;
}

SearchOptions SearchOptions::parse(Arguments arguments, Filter::Case letters) {
    SearchOptions options;
    while (arguments.size() >= 2) {
        const std::string &name = arguments[arguments.size() - 2];
        const std::string &value = arguments.back();
        if (name == "sort") {
            options.sort = parse_sort(value);
        } else if (name == "window") {
            options.window = parse_range(value);
        } else if (name == "position") {
            options.position = value;
        } else if (name == "group") {
            options.groups.push_back(need_tag(value));
        } else {
            break;
        }
        if (options.groups.size() > groups_max) {
            throw Ack(AckCode::argument, "too many groups");
        }
        arguments = arguments.first(arguments.size() - 2);
    }
    options.filter = Filter::parse(arguments, letters);
    return options;
}

} // namespace vantro::mpd
