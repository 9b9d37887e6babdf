// Playlists that the catalogue has: files among the music, which are only read.
#include <optional>
#include <utility>

#include <fmt/format.h>

#include <vantro/catalogue.h>

#include "bridges/mpd/ack.h"
#include "bridges/mpd/catalogue.h"
#include "bridges/mpd/client.h"
#include "bridges/mpd/commands/handlers.h"
#include "bridges/mpd/commands/queue_edit.h"
#include "bridges/mpd/node_walk.h"
#include "bridges/mpd/partition.h"
#include "bridges/mpd/text.h"

namespace vantro::mpd {
namespace {

constexpr int songs_a_step = 32;
constexpr int names_a_step = 256;

// Nodes that are added at once.
constexpr size_t nodes_bytes_max = 1024 * 1024;

enum class Form { names, songs };

NodeKey find_playlist(Context &context, const std::string &name) {
    Player &player = context.partition.player();
    for (const Catalogue::Source &source : context.catalogue.sources(player)) {
        NodeWalk walk = NodeWalk::below({source.id, playlists_menu}, false);
        while (const MediaNode *const node = walk.next(player).node) {
            if (text(node->name) == name) {
                return {source.id, std::string(text(node->id))};
            }
        }
    }
    throw Ack(AckCode::no_exist, fmt::format("no such playlist: \"{}\"", name));
}

class ListPlaylist : public Task {
  public:
    ListPlaylist(NodeKey playlist, Form form)
        : source_(playlist.source), walk_(NodeWalk::below(std::move(playlist), false)),
          form_(form) {}

    bool step(Context &context) override {
        Player &player = context.partition.player();
        for (int count = 0; count < songs_a_step; ++count) {
            const MediaNode *const node = walk_.next(player).node;
            if (!node) {
                return true;
            }
            const SongPtr song =
                context.catalogue.song(player, {source_, std::string(text(node->id))});
            if (form_ == Form::songs) {
                context.reply.song(*song, context.client.shown_tags);
            } else {
                context.reply.pair("file", song->uri);
            }
        }
        return false;
    }

  private:
    const int32_t source_;
    NodeWalk walk_;
    const Form form_;
};

class ListPlaylists : public Task {
  public:
    explicit ListPlaylists(const std::vector<Catalogue::Source> &sources) {
        for (const Catalogue::Source &source : sources) {
            walks_.insert(walks_.begin(), NodeWalk::below({source.id, playlists_menu}, false));
        }
    }

    bool step(Context &context) override {
        for (int count = 0; !walks_.empty() && count < names_a_step; ++count) {
            const MediaNode *const node = walks_.back().next(context.partition.player()).node;
            if (node) {
                context.reply.pair("playlist", text(node->name));
            } else {
                walks_.pop_back();
            }
        }
        return walks_.empty();
    }

  private:
    std::vector<NodeWalk> walks_; // The last one first.
};

// The songs of a part of a playlist, one node a line.
std::string nodes_of(Context &context, const NodeKey &playlist, const Range &range) {
    Player &player = context.partition.player();
    NodeWalk walk = NodeWalk::below(playlist, false);
    std::string nodes;
    for (uint32_t at = 0; at < range.end; ++at) {
        const MediaNode *const node = walk.next(player).node;
        if (!node) {
            break;
        }
        if (at >= range.begin) {
            nodes +=
                fmt::format("{}{}:{}", nodes.empty() ? "" : "\n", playlist.source, text(node->id));
        }
        if (nodes.size() > nodes_bytes_max) {
            throw Ack(AckCode::playlist_max, "too many songs at once");
        }
    }
    return nodes;
}

} // namespace

TaskPtr run_listplaylists(Context &context, Arguments) {
    return std::make_unique<ListPlaylists>(context.catalogue.sources(context.partition.player()));
}

TaskPtr run_listplaylist(Context &context, Arguments arguments) {
    return std::make_unique<ListPlaylist>(find_playlist(context, arguments[0]), Form::names);
}

TaskPtr run_listplaylistinfo(Context &context, Arguments arguments) {
    return std::make_unique<ListPlaylist>(find_playlist(context, arguments[0]), Form::songs);
}

TaskPtr run_load(Context &context, Arguments arguments) {
    const NodeKey playlist = find_playlist(context, arguments[0]);
    const QueueTarget target =
        target_of(context, arguments.size() > 2 ? std::string_view(arguments[2]) : "");
    const bool whole = arguments.size() < 2;
    const std::string nodes = whole ? fmt::format("{}:{}", playlist.source, playlist.id)
                                    : nodes_of(context, playlist, parse_range(arguments[1]));
    if (!nodes.empty()) {
        add_nodes(context, nodes, target);
    }
    return nullptr;
}

// save, rm and all others that would change a playlist.
TaskPtr run_read_only(Context &, Arguments) {
    throw Ack(AckCode::permission, "playlists are files among the music, and are only read");
}

} // namespace vantro::mpd
