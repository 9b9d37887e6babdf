// Saved playlists, and playlist files among the music, which are read-only.
#include <cerrno>
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
#include "bridges/mpd/service_call.h"
#include "bridges/mpd/text.h"

namespace vantro::mpd {
namespace {

constexpr int songs_a_step = 32;
constexpr int names_a_step = 256;

// Bytes of nodes that are added at a time.
constexpr size_t nodes_bytes_max = 1024 * 1024;

enum class Form { names, songs };

NodeKey find_playlist(Context &context, const std::string &name) {
    Player &player = context.partition.player();
    for (const int32_t source : context.catalogue.playlist_sources(player)) {
        NodeWalk walk = NodeWalk::below({source, playlists_menu}, false);
        while (const MediaNode *const node = walk.next(player).node) {
            if (one_line(text(node->name)) == name) {
                return {source, std::string(text(node->id))};
            }
        }
    }
    throw Ack(AckCode::no_exist, fmt::format("no such playlist: \"{}\"", name));
}

class ListPlaylist : public Task {
  public:
    ListPlaylist(NodeKey playlist, Form form)
        : walk_(NodeWalk::below(std::move(playlist), false)), form_(form) {}

    bool step(Context &context) override {
        Player &player = context.partition.player();
        for (int count = 0; count < songs_a_step; ++count) {
            const MediaNode *const node = walk_.next(player).node;
            if (!node) {
                return true;
            }
            if (text(node->id).empty()) {
                continue; // its file does not exist now
            }
            const SongPtr song =
                context.catalogue.song_if_there(player, {node->ms_id, std::string(text(node->id))});
            if (!song) {
                continue;
            }
            if (form_ == Form::songs) {
                context.reply.song(*song, context.client.shown_tags);
            } else {
                context.reply.pair("file", song->uri);
            }
        }
        return false;
    }

  private:
    NodeWalk walk_;
    const Form form_;
};

class ListPlaylists : public Task {
  public:
    explicit ListPlaylists(const std::vector<int32_t> &sources) {
        for (const int32_t source : sources) {
            walks_.insert(walks_.begin(), NodeWalk::below({source, playlists_menu}, false));
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
    std::vector<NodeWalk> walks_; // The last one is read first.
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
        if (at >= range.begin && !text(node->id).empty()) {
            nodes += fmt::format("{}{}:{}", nodes.empty() ? "" : "\n", node->ms_id, text(node->id));
        }
        if (nodes.size() > nodes_bytes_max) {
            throw Ack(AckCode::playlist_max, "too many songs at once");
        }
    }
    return nodes;
}

template <typename Value>
void refuse_name(const Result<Value> &result, const std::string &name) {
    if (refused(result, EINVAL)) {
        throw Ack(AckCode::argument, fmt::format("\"{}\" cannot name a playlist", name));
    }
}

} // namespace

TaskPtr run_listplaylists(Context &context, Arguments) {
    return std::make_unique<ListPlaylists>(
        context.catalogue.playlist_sources(context.partition.player()));
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

TaskPtr run_save(Context &context, Arguments arguments) {
    const std::string &name = arguments[0];
    const std::string_view mode = arguments.size() > 1 ? std::string_view(arguments[1]) : "create";
    if (mode != "create" && mode != "replace") {
        throw Ack(AckCode::argument, mode == "append" ? "songs cannot be added to a playlist"
                                                      : "the mode is create or replace");
    }
    context.partition.commit();
    const bool replace = mode == "replace";
    const Result<int> saved = context.partition.player().save_playlist(name.c_str(), replace);
    if (refused(saved, EEXIST)) {
        throw Ack(AckCode::exist, fmt::format("there is a playlist \"{}\"", name));
    }
    refuse_name(saved, name);
    checked(saved);
    context.partition.note_saved_playlists();
    return nullptr;
}

// Deletes saved playlists only; playlist files among the music stay.
TaskPtr run_rm(Context &context, Arguments arguments) {
    const Result<void> removed = context.partition.player().delete_playlist(arguments[0].c_str());
    if (refused(removed, ENOENT)) {
        throw Ack(AckCode::no_exist, fmt::format("no saved playlist: \"{}\"", arguments[0]));
    }
    refuse_name(removed, arguments[0]);
    checked(removed);
    context.partition.note_saved_playlists();
    return nullptr;
}

// All other commands that would change a playlist.
TaskPtr run_read_only(Context &, Arguments) {
    throw Ack(AckCode::permission,
              "a playlist can be saved as a whole and deleted, but not edited");
}

} // namespace vantro::mpd
