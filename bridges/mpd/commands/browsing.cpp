// Directories and their entries.
#include <utility>
#include <vector>

#include <vantro/catalogue.h>

#include "bridges/mpd/catalogue.h"
#include "bridges/mpd/client.h"
#include "bridges/mpd/commands/handlers.h"
#include "bridges/mpd/node_walk.h"
#include "bridges/mpd/partition.h"
#include "bridges/mpd/text.h"

namespace vantro::mpd {
namespace {

// Entries in one step, after which other clients have their turn. Each entry may take an exchange
// with the service.
constexpr int entries_a_step = 32;

// Folders lie no deeper in the service.
constexpr size_t depth_max = 300;

enum class Form { names, songs };
enum class Depth { one, all };

void tell_song(Context &context, const SongPtr &song, Form form) {
    if (form == Form::songs) {
        context.reply.song(*song, context.client.shown_tags);
    } else {
        context.reply.pair("file", song->uri);
    }
}

// The entries of a directory, and of those below it.
class ListDirectory : public Task {
  public:
    ListDirectory(Form form, Depth depth) : form_(form), depth_(depth) {}

    void enter(const NodeKey &key, std::string uri) {
        if (open_.size() < depth_max) {
            open_.push_back({NodeWalk::below(key, false), key.source, std::move(uri)});
        }
    }
    // Adds a directory to list, for example that of each source.
    void queue(NodeKey key, std::string uri) {
        later_.insert(later_.begin(), {std::move(key), std::move(uri)});
    }

    bool step(Context &context) override {
        for (int count = 0; count < entries_a_step; ++count) {
            if (open_.empty() && !open_next(context)) {
                return true;
            }
            if (!open_.empty()) {
                tell_next(context);
            }
        }
        return false;
    }

  private:
    struct Open {
        NodeWalk walk;
        int32_t source;
        std::string uri;
    };

    bool open_next(Context &context) {
        if (later_.empty()) {
            return false;
        }
        auto [key, uri] = std::move(later_.back());
        later_.pop_back();
        tell_directory(context, key, std::move(uri));
        return true;
    }

    void tell_directory(Context &context, const NodeKey &key, std::string uri) {
        context.reply.pair("directory", uri);
        if (depth_ == Depth::all) {
            enter(key, std::move(uri));
        }
    }

    void tell_next(Context &context) {
        Open &now = open_.back();
        Player &player = context.partition.player();
        const MediaNode *const node = now.walk.next(player).node;
        if (!node) {
            open_.pop_back();
            return;
        }
        const NodeKey key{now.source, std::string(text(node->id))};
        if (node->type == VANTRO_NODE_FOLDER) {
            tell_directory(context, key, now.uri + '/' + one_line(text(node->name)));
        } else if (node->type == VANTRO_NODE_SONG) {
            if (const SongPtr song = context.catalogue.song_if_there(player, key)) {
                tell_song(context, song, form_);
            }
        }
    }

    const Form form_;
    const Depth depth_;
    std::vector<Open> open_; // From the outermost to the innermost.
    std::vector<std::pair<NodeKey, std::string>> later_;
};

TaskPtr list(Context &context, Arguments arguments, Form form, Depth depth) {
    Player &player = context.partition.player();
    Catalogue::Place place =
        context.catalogue.find(player, arguments.empty() ? std::string() : arguments[0]);
    if (place.kind == Catalogue::Place::Kind::song) {
        tell_song(context, place.song, form);
        return nullptr;
    }
    auto task = std::make_unique<ListDirectory>(form, depth);
    if (place.kind == Catalogue::Place::Kind::folder) {
        if (depth == Depth::all) {
            context.reply.pair("directory", place.uri);
        }
        task->enter(place.key, std::move(place.uri));
        return task;
    }
    if (depth == Depth::one) {
        for (const Catalogue::Source &source : context.catalogue.sources(player)) {
            context.reply.pair("directory", source.directory);
        }
        return run_listplaylists(context, {}); // clients look for playlists there, too
    }
    for (const Catalogue::Source &source : context.catalogue.sources(player)) {
        task->queue({source.id, folders_menu}, source.directory);
    }
    return task;
}

} // namespace

// The music directories, with which URIs begin.
TaskPtr run_listmounts(Context &context, Arguments) {
    Player &player = context.partition.player();
    for (const Catalogue::Source &source : context.catalogue.sources(player)) {
        context.reply.pair("mount", source.directory);
        const std::string_view path = context.catalogue.path_of_source(player, source.id);
        context.reply.pair("storage", path.substr(0, path.rfind('/')));
    }
    return nullptr;
}

TaskPtr run_lsinfo(Context &context, Arguments arguments) {
    return list(context, arguments, Form::songs, Depth::one);
}

TaskPtr run_listall(Context &context, Arguments arguments) {
    return list(context, arguments, Form::names, Depth::all);
}

TaskPtr run_listallinfo(Context &context, Arguments arguments) {
    return list(context, arguments, Form::songs, Depth::all);
}

} // namespace vantro::mpd
