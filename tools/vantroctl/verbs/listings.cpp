#include "tools/vantroctl/verbs/listings.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <limits>
#include <set>
#include <utility>

#include <fmt/format.h>

#include <vantro/catalogue.h>
#include <vantro/player.h>

#include "tools/vantroctl/failure.h"
#include "tools/vantroctl/output/fields.h"
#include "tools/vantroctl/output/json_output.h"
#include "tools/vantroctl/output/node_view.h"
#include "tools/vantroctl/output/pager.h"
#include "tools/vantroctl/output/standard_output.h"
#include "tools/vantroctl/service/catalogue_queries.h"
#include "tools/vantroctl/service/client.h"
#include "tools/vantroctl/text/display_text.h"
#include "tools/vantroctl/text/node_ref.h"
#include "tools/vantroctl/verbs/play_watch.h"

namespace vantro::ctl {
namespace {

// Nodes fetched at a time: a page fits one exchange, and the first lines appear at once.
constexpr int32_t page_nodes = 500;

constexpr int64_t index_end = std::numeric_limits<int32_t>::max();

using Page = std::vector<Node>;
using Fetch = std::function<Page(int32_t offset, int32_t count)>;

// Fetches a list and writes it; the reader may close the output before the end.
class Lister {
  public:
    Lister(Client &client, const ListOptions &options)
        : client_(client), options_(options), left_(options.limit > 0 ? options.limit : index_end),
          pager_(options.pager && !options.json) {}

    // @param take gets one page after the other. @return false if it ended the list.
    bool pages(const Fetch &fetch, int64_t offset, const std::function<bool(Page &)> &take) {
        while (left_ > 0 && offset < index_end) {
            const int64_t wanted = std::min({left_, int64_t{page_nodes}, index_end - offset});
            Page page = fetch(static_cast<int32_t>(offset), static_cast<int32_t>(wanted));
            const auto got = static_cast<int64_t>(page.size());
            if (got > left_) {
                page.resize(static_cast<size_t>(left_));
            }
            if (!take(page)) {
                return false;
            }
            if (got != wanted) { // The list has ended, or the service does not know pages.
                return true;
            }
            offset += wanted;
        }
        return left_ > 0;
    }

    // @param heading is printed above the entries, if there are any.
    bool flat(const Fetch &fetch, const std::string &heading) {
        Table table = node_table(terminal_columns());
        std::string text = above(heading);
        return pages(fetch, options_.offset, [&](Page &page) {
            std::vector<Table::Row> rows;
            for (const Node &node : page) {
                rows.push_back(node_row(node, terminal_columns()));
            }
            count(page);
            if (options_.format) {
                return std::all_of(page.begin(), page.end(), [&](const Node &node) {
                    return show_as({node}, std::exchange(text, {}));
                });
            }
            if (options_.json) {
                std::move(page.begin(), page.end(), std::back_inserter(nodes_));
            } else if (!rows.empty()) {
                text += table.lines(rows);
                return show(std::exchange(text, {}));
            }
            return true;
        });
    }

    bool tree(const Place &place, const std::string &heading, int level = 0) {
        std::string top = above(heading);
        const Fetch fetch = [&](int32_t offset, int32_t count) {
            return browse_page(client_, place, offset, count);
        };
        return pages(fetch, level == 0 ? options_.offset : 0, [&](Page &page) {
            for (Node &node : page) {
                const Place below{node.source, node.id};
                const bool go_down =
                    node.count > 0 && node.type != VANTRO_NODE_SONG && level + 1 < options_.depth;
                if (left_-- <= 0 || !add(node, level, std::exchange(top, {})) ||
                    (go_down && !tree(below, "", level + 1))) {
                    return false;
                }
            }
            return true;
        });
    }

    void count(const Page &page) { left_ -= static_cast<int64_t>(page.size()); }

    bool show(const std::string &text) {
        shown_ = true;
        return pager_.write(text);
    }

    // Shows the entry by the template, if there is one.
    bool show_as(const ListedNode &listed, const std::string &top = {}) {
        return show(top + options_.format->line(
                              [&](std::string_view name) { return node_field(listed, name); }));
    }

    // @param nothing the message for people, if the list is empty.
    void finish(const std::string &command, const std::string &nothing) {
        if (options_.json) {
            print(json_nodes(options_.player, command, nodes_));
        } else {
            end(nothing);
        }
    }

    void end(const std::string &nothing) {
        if (!shown_ && !options_.format && output_is_terminal()) {
            show(nothing + '\n');
        }
        pager_.finish();
    }

  private:
    std::string above(const std::string &heading) const {
        return (shown_ && !heading.empty() ? "\n" : "") + heading;
    }

    bool add(Node &node, int level, const std::string &top) {
        if (options_.format) {
            return show_as({.node = node, .level = level}, top);
        }
        if (!options_.json) {
            return show(top + tree_line(node, level, terminal_columns()));
        }
        Page *siblings = &nodes_;
        for (int i = 0; i < level; ++i) {
            siblings = &siblings->back().nodes;
        }
        siblings->push_back(std::move(node));
        return true;
    }

    Client &client_;
    const ListOptions &options_;
    int64_t left_; // Entries that may still be shown.
    Pager pager_;
    bool shown_ = false;
    Page nodes_; // For JSON, which is printed whole or not at all.
};

// A source to list, and the heading above its entries if it is not the only one.
struct Section {
    int32_t source;
    std::string heading;
    bool scanning = false; // More may still be found.
};

std::vector<Section> sections(Client &client, const ListOptions &options) {
    if (options.source) {
        return {{*options.source, ""}};
    }
    std::vector<Source> sources = get_sources(client);
    // The playlists' entries are songs of the other sources, and run_playlists() lists the
    // playlists.
    std::erase_if(sources,
                  [](const Source &source) { return source.type == VANTRO_SOURCE_PLAYLISTS; });
    if (sources.empty()) {
        throw Failure(Outcome::not_found, "no media source: start vantrod with --music DIR");
    }
    if (sources.size() > 1 && options.offset > 0) {
        throw Failure(Outcome::usage,
                      fmt::format("--offset counts within one source and there are {}: add "
                                  "--source; vantroctl sources lists them",
                                  sources.size()));
    }
    std::vector<Section> result;
    for (const Source &source : sources) {
        const bool headed = sources.size() > 1 && output_is_terminal();
        result.push_back(
            {source.id,
             headed ? fmt::format("{}  {}\n", clean_text(source.name), ref_text(source.id, ""))
                    : "",
             source.status == VANTRO_SOURCE_SCANNING});
    }
    return result;
}

} // namespace

Place place_of(Client &client, const ListOptions &options, const std::string &text) {
    if (text.empty()) { // Most likely an unset shell variable.
        throw Failure(Outcome::usage, "an empty NODE: the top of source 1, say, is written 1:");
    }
    const NodeRef ref = parse_ref(text);
    if (ref.source && options.source && *ref.source != *options.source) {
        throw Failure(Outcome::usage, fmt::format("{} is not of source {}: leave --source out",
                                                  ref_text(*ref.source, ref.id), *options.source));
    }
    const std::optional<int32_t> source = ref.source ? ref.source : options.source;
    if (source) {
        return {*source, ref.id};
    }
    const std::vector<Section> all = sections(client, {});
    if (all.size() > 1) {
        throw Failure(Outcome::usage,
                      fmt::format("of which of the {} sources? write SOURCE:ID, or add --source; "
                                  "vantroctl sources lists them",
                                  all.size()));
    }
    return {all.front().source, ref.id};
}

void run_sources(Client &client, const ListOptions &options) {
    const std::vector<Source> sources = get_sources(client);
    if (options.json) {
        print(json_sources(options.player, sources));
        return;
    }
    std::vector<Table::Row> rows;
    rows.reserve(sources.size());
    for (const Source &source : sources) {
        rows.push_back(source_row(source));
    }
    Lister lister(client, options);
    if (!rows.empty()) {
        lister.show(source_table(terminal_columns()).lines(rows));
    }
    lister.end("no sources");
}

void run_browse(Client &client, const ListOptions &options,
                const std::optional<std::string> &node) {
    std::vector<std::pair<Place, std::string>> tops;
    if (node) {
        tops.emplace_back(place_of(client, options, *node), "");
    } else {
        for (const Section &section : sections(client, options)) {
            tops.emplace_back(Place{section.source, VANTRO_NODE_ROOT}, section.heading);
        }
    }
    Lister lister(client, options);
    for (const auto &[place, heading] : tops) {
        const Fetch fetch = [&client, &at = place](int32_t offset, int32_t count) {
            return browse_page(client, at, offset, count);
        };
        if (options.depth > 0 ? !lister.tree(place, heading) : !lister.flat(fetch, heading)) {
            break;
        }
    }
    lister.finish("browse", "no entries");
}

void run_search(Client &client, const ListOptions &options, const std::string &filter,
                const std::string &term) {
    const std::vector<Section> all = sections(client, options);
    Lister lister(client, options);
    for (const Section &section : all) {
        const Fetch fetch = [&](int32_t offset, int32_t count) {
            return search_page(client, section.source, filter, term, offset, count);
        };
        if (!lister.flat(fetch, section.heading)) {
            break;
        }
    }
    const bool scanning = std::any_of(all.begin(), all.end(),
                                      [](const Section &section) { return section.scanning; });
    lister.finish("search", scanning ? "nothing found so far; music is still being scanned"
                                     : "nothing found");
}

void run_tracks(Client &client, const ListOptions &options) {
    const SessionStatus session = client.need_session();
    const std::optional<TrackStatus> track = client.track();
    const std::optional<int32_t> current = track ? std::optional(track->index) : std::nullopt;
    Lister lister(client, options);
    Table table = track_table(terminal_columns());
    Page tracks;
    const Fetch fetch = [&](int32_t offset, int32_t count) {
        return tracks_page(client, static_cast<uint64_t>(session.id), offset, count);
    };
    int32_t index = options.offset;
    lister.pages(fetch, options.offset, [&](Page &page) {
        std::vector<Table::Row> rows;
        std::vector<size_t> playing;
        for (const Node &node : page) {
            if (options.format &&
                !lister.show_as({.node = node, .index = index, .current = index == current})) {
                return false;
            }
            if (index == current) {
                playing.push_back(rows.size());
            }
            rows.push_back(track_row(node, index, index == current, terminal_columns()));
            ++index;
        }
        lister.count(page);
        if (options.format) {
            return true;
        }
        if (options.json) {
            std::move(page.begin(), page.end(), std::back_inserter(tracks));
            return true;
        }
        return rows.empty() || lister.show(table.lines(rows, playing));
    });
    if (options.json) {
        print(json_tracks(options.player, session, current, options.offset, tracks));
    } else {
        lister.end("no tracks");
    }
}

void run_info(Client &client, const ListOptions &options, const std::string &node,
              const std::vector<std::string> &keys) {
    const Place place = place_of(client, options, node);
    std::vector<std::string> wanted; // Each once: they become the members of one object.
    std::set<std::string> seen;
    std::copy_if(keys.begin(), keys.end(), std::back_inserter(wanted),
                 [&](const std::string &key) { return seen.insert(key).second; });
    const Values values =
        keys.empty() ? get_known_values(client, place) : get_values(client, place, wanted);
    if (options.json) {
        print(json_values(options.player, place, values));
        return;
    }
    Lister lister(client, options);
    if (!values.empty()) {
        lister.show(render_values(values, terminal_columns()));
    }
    lister.end("the node has no metadata");
}

void run_playlists(Client &client, const ListOptions &options) {
    const std::vector<Source> sources = get_sources(client);
    const auto saved = std::find_if(sources.begin(), sources.end(), [](const Source &source) {
        return source.type == VANTRO_SOURCE_PLAYLISTS;
    });
    Lister lister(client, options);
    lister.flat(
        [&](int32_t offset, int32_t count) {
            return saved == sources.end()
                       ? Page()
                       : browse_page(client, {saved->id, VANTRO_NODE_ROOT}, offset, count);
        },
        "");
    lister.finish("playlists", "no playlists: vantroctl save NAME saves the player's tracks");
}

void run_queued(Client &client, const ListOptions &options) {
    static const Template usual("{{group(artist, ' - ')}}{{title}}", node_fields(true));
    const std::optional<SessionStatus> session = client.session();
    const std::optional<TrackStatus> track = session ? client.track() : std::nullopt;
    const VantroStateInfo state = client.state();
    if (track && state.shuffle != VANTRO_SHUFFLE_OFF && state.repeat != VANTRO_REPEAT_ONE) {
        throw Failure(Outcome::failed, "in random order only the service knows what follows");
    }
    int32_t index = !track ? 0 : track->index + (state.repeat == VANTRO_REPEAT_ONE ? 0 : 1);
    if (track && index >= session->length && state.repeat == VANTRO_REPEAT_ALL) {
        index = 0;
    }
    Page page;
    if (track && index < session->length) {
        page = tracks_page(client, static_cast<uint64_t>(session->id), index, 1);
    }
    if (options.json) {
        print(json_queued(options.player, index, page));
    } else if (!page.empty()) {
        print(options.format.value_or(usual).line([&](std::string_view name) {
            return node_field({.node = page.front(), .index = index}, name);
        }));
    }
}

CommandResult run_play(Client &client, int32_t number) {
    PlayWatch watch(client);
    jump_to(client, number - 1);
    play(client);
    watch.await();
    return {.command = "play", .index = number - 1};
}

CommandResult run_jump(Client &client, int32_t number) {
    jump_to(client, number - 1);
    return {.command = "jump", .index = number - 1};
}

} // namespace vantro::ctl
