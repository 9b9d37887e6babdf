#include "tools/vantroctl/output/node_view.h"

#include <algorithm>
#include <charconv>
#include <ctime>
#include <iterator>
#include <string_view>

#include <fmt/format.h>

#include <vantro/catalogue.h>

#include "tools/vantroctl/text/display_text.h"
#include "tools/vantroctl/text/node_ref.h"
#include "tools/vantroctl/text/time_text.h"

namespace vantro::ctl {
namespace {

// If a name in a tree would be narrower than this, the reference moves to a separate line.
constexpr int tree_name_columns_min = 12;
// Beyond this, deeper levels of a tree are not indented further.
constexpr int indent_columns_max = 64;
// If values would be narrower than this beside their keys, they stand below the keys.
constexpr int value_columns_min = 24;

template <size_t size>
const char *name_in(const char *const (&names)[size], int32_t number) {
    return number >= 0 && number < static_cast<int32_t>(size) ? names[number] : "unknown";
}

std::string local_time(int64_t seconds) {
    const std::time_t time = seconds;
    std::tm parts = {};
    char text[64];
    const size_t length = localtime_r(&time, &parts)
                              ? std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts)
                              : 0;
    return {text, length};
}

// A value for people: with its unit, or in another form.
std::string readable(std::string_view key, const std::string &value) {
    int64_t number = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
    if (error != std::errc() || end != value.data() + value.size() || number < 0) {
        return value;
    }
    if ((key == VANTRO_KEY_DURATION || key == VANTRO_KEY_START) && number <= INT32_MAX) {
        return format_time(static_cast<int32_t>(number));
    }
    if (key == VANTRO_KEY_MODIFIED) {
        const std::string time = local_time(number);
        return time.empty() ? value : time;
    }
    const struct {
        std::string_view key, unit;
    } units[] = {{VANTRO_KEY_BIT_RATE, "kbit/s"},
                 {VANTRO_KEY_SAMPLE_RATE, "Hz"},
                 {VANTRO_KEY_SIZE, "bytes"}};
    for (const auto &unit : units) {
        if (unit.key == key) {
            return fmt::format("{} {}", value, unit.unit);
        }
    }
    return value;
}

// The lines of a value, each clean and folded.
std::vector<std::string> folded(std::string_view value, int columns) {
    std::vector<std::string> lines;
    while (!value.empty()) {
        const size_t end = std::min(value.find('\n'), value.size());
        for (std::string &line : fold_text(clean_text(value.substr(0, end)), columns)) {
            lines.push_back(std::move(line));
        }
        value.remove_prefix(std::min(end + 1, value.size()));
    }
    return lines;
}

std::string length_of(const Node &node) {
    return node.duration_ms > 0 ? format_time(node.duration_ms) : "";
}

// For people the name and the artist share one column; programs get a column for each.
void add_name(Table::Row &row, const Node &node, std::optional<int> width) {
    if (!width) {
        row.insert(row.end(), {clean_text(node.name), clean_text(node.artist),
                               clean_text(node.album), length_of(node)});
        return;
    }
    std::string name = clean_text(node.name);
    for (const std::string *of : {&node.artist, &node.album}) {
        if (!of->empty()) {
            name += " - " + clean_text(*of);
        }
    }
    row.push_back(std::move(name));
}

} // namespace

const char *node_type_name(int32_t type) {
    static constexpr const char *names[] = {"unknown", "menu", "folder",   "artist", "album",
                                            "genre",   "year", "playlist", "song"};
    return name_in(names, type);
}

const char *source_type_name(int32_t type) {
    static constexpr const char *names[] = {"unknown", "directory", "removable", "playlists"};
    return name_in(names, type);
}

const char *source_status_name(int32_t status) {
    static constexpr const char *names[] = {"unavailable", "scanning", "ready"};
    return name_in(names, status);
}

const char *error_name(int32_t code) {
    static constexpr const char *names[] = {"unknown", "gone", "unreadable", "damaged", "output"};
    return name_in(names, code);
}

const char *error_words(int32_t code) {
    static constexpr const char *words[] = {
        "unknown reason", "the file does not exist any more", "the file cannot be read",
        "the contents of the file cannot be played", "the audio output cannot be used"};
    return words[code > 0 && code < static_cast<int32_t>(std::size(words)) ? code : 0];
}

std::vector<std::string> capability_names(uint64_t capabilities) {
    static constexpr struct {
        uint64_t bit;
        const char *name;
    } known[] = {
        {VANTRO_SOURCE_CAN_BROWSE, "browse"},
        {VANTRO_SOURCE_CAN_SEARCH, "search"},
        {VANTRO_SOURCE_CAN_METADATA, "metadata"},
        {VANTRO_SOURCE_CAN_EXTENDED_METADATA, "extended_metadata"},
        {VANTRO_SOURCE_CAN_TRKSESSION, "track_session"},
        {VANTRO_SOURCE_HAS_ARTWORK, "artwork"},
        {VANTRO_SOURCE_HAS_PLAYLISTS, "playlists"},
    };
    std::vector<std::string> names;
    for (const auto &capability : known) {
        if (capabilities & capability.bit) {
            names.emplace_back(capability.name);
        }
    }
    return names;
}

std::string node_ref(const Node &node) {
    const bool gone = node.id.empty() && node.type == VANTRO_NODE_SONG;
    return gone ? "" : ref_text(node.source, node.id);
}

Table node_table(std::optional<int> width) {
    return Table({{.head = "NODE", .pasted = true},
                  {.head = "TYPE", .spare = 2},
                  {.head = "COUNT", .right = true, .spare = 1},
                  {.head = "NAME"}},
                 width);
}

Table::Row node_row(const Node &node, std::optional<int> width) {
    const bool has_length = width && node.duration_ms > 0;
    Table::Row row = {node_ref(node), node_type_name(node.type),
                      has_length ? format_time(node.duration_ms) : fmt::format("{}", node.count)};
    add_name(row, node, width);
    return row;
}

Table source_table(std::optional<int> width) {
    return Table({{.head = "NODE", .pasted = true},
                  {.head = "STATUS", .spare = 3},
                  {.head = "TYPE", .spare = 2},
                  {.head = "UID", .spare = 1},
                  {.head = "NAME"}},
                 width);
}

Table::Row source_row(const Source &source) {
    return {ref_text(source.id, ""), source_status_name(source.status),
            source_type_name(source.type), clean_text(source.uid), clean_text(source.name)};
}

Table track_table(std::optional<int> width) {
    return Table({{.head = ""},
                  {.head = "NO", .right = true},
                  {.head = "NODE", .pasted = true},
                  {.head = "LENGTH", .right = true, .spare = 1},
                  {.head = "NAME"}},
                 width);
}

Table::Row track_row(const Node &node, int32_t index, bool current, std::optional<int> width) {
    Table::Row row = {current ? "*" : "", fmt::format("{}", int64_t{index} + 1), node_ref(node)};
    if (width) {
        row.push_back(length_of(node));
    }
    add_name(row, node, width);
    return row;
}

std::string tree_line(const Node &node, int level, std::optional<int> width) {
    const std::string name = clean_text(node.name);
    const std::string holds = node.type == VANTRO_NODE_SONG ? "" : fmt::format(" ({})", node.count);
    const std::string ref = node_ref(node);
    if (!width) {
        return fmt::format("{:{}}{}{}\t{}\n", "", 2 * level, name, holds, ref);
    }
    const int indent = std::min({2 * level, indent_columns_max, *width / 2});
    const int room = *width - indent - display_width(holds);
    const int beside = room - display_width(ref) - 2;
    if (!ref.empty() && beside >= std::min(display_width(name), tree_name_columns_min)) {
        return fmt::format("{:{}}{}{}  {}\n", "", indent, clip_text(name, beside), holds, ref);
    }
    const std::string line = clip_text(clip_text(name, std::max(room, 1)) + holds, *width - indent);
    return fmt::format("{:{}}{}\n", "", indent, line) +
           (ref.empty() ? "" : fmt::format("{:{}}{}\n", "", indent + 2, ref));
}

std::string render_values(const Values &values, std::optional<int> width) {
    std::string text;
    if (!width) {
        for (const auto &[key, value] : values) {
            text += clean_text(key) + (value ? ": " + clean_text(*value) : ":") + '\n';
        }
        return text;
    }
    int keys = 0;
    for (const auto &[key, value] : values) {
        keys = std::max(keys, display_width(clean_text(key)));
    }
    const bool beside = *width - keys - 2 >= value_columns_min;
    const int indent = beside ? keys + 2 : 2;
    for (const auto &[key, value] : values) {
        const std::string label = clip_text(clean_text(key), *width);
        auto lines = folded(value ? readable(key, *value) : "-", std::max(*width - indent, 1));
        text += label;
        if (beside) {
            text.append(static_cast<size_t>(indent - display_width(label)), ' ');
            text += lines.empty() ? "" : lines.front();
            lines.erase(lines.begin(), lines.begin() + (lines.empty() ? 0 : 1));
        }
        text += '\n';
        for (const std::string &line : lines) {
            text += fmt::format("{:{}}{}\n", "", indent, line);
        }
    }
    return text;
}

} // namespace vantro::ctl
