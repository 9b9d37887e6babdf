// Listing the queue.
#include <algorithm>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "bridges/mpd/catalogue.h"
#include "bridges/mpd/client.h"
#include "bridges/mpd/commands/handlers.h"
#include "bridges/mpd/commands/queue_edit.h"
#include "bridges/mpd/filter.h"
#include "bridges/mpd/partition.h"

namespace vantro::mpd {
namespace {

// Songs in one step, after which other clients have their turn. Each song may take an exchange with
// the service.
constexpr int songs_a_step = 32;

// Old clients write this instead of leaving a position or version out.
constexpr std::string_view everything = "-1";

enum class Form { song, uri, position_and_id };

// Lists the entries that the queue had when the command came.
class ListQueue : public Task {
  public:
    ListQueue(QueueEntries entries, Range range, Form form)
        : entries_(std::move(entries)), at_(range.begin),
          end_(std::min<uint32_t>(range.end, static_cast<uint32_t>(entries_->size()))),
          form_(form) {}

    // Only entries that have changed after that version.
    void only_after(uint32_t version) { after_ = version; }
    // Only matching songs.
    void only_matching(Filter filter) { filter_ = std::move(filter); }

    bool step(Context &context) override {
        const int most = filter_.is_slow() ? 1 : songs_a_step;
        for (int count = 0; at_ < end_ && count < most; ++at_) {
            const QueueEntry &entry = (*entries_)[at_];
            if (entry.changed > after_) {
                tell(context, entry);
                ++count;
            }
        }
        return at_ >= end_;
    }

  private:
    void tell(Context &context, const QueueEntry &entry) const {
        Reply &reply = context.reply;
        if (form_ == Form::position_and_id) {
            reply.number("cpos", at_);
            reply.number("Id", entry.id);
            return;
        }
        const SongPtr song = context.catalogue.queued_song(context.partition.player(), entry.key);
        if (form_ == Form::uri) {
            reply.raw(fmt::format("{}:file: {}\n", at_, song->uri));
            return;
        }
        if (!filter_.matches(*song)) {
            return;
        }
        reply.song(*song, context.client.shown_tags);
        reply.number("Pos", at_);
        reply.number("Id", entry.id);
    }

    const QueueEntries entries_;
    uint32_t at_;
    const uint32_t end_;
    const Form form_;
    uint32_t after_ = 0;
    Filter filter_;
};

TaskPtr list(Context &context, const Range &range, Form form) {
    return std::make_unique<ListQueue>(context.partition.queue().entries(), range, form);
}

TaskPtr list_changes(Context &context, Arguments arguments, Form form) {
    const Queue &queue = context.partition.queue();
    const uint32_t version = arguments[0] == everything ? 0 : parse_unsigned(arguments[0]);
    const Range range = arguments.size() > 1 ? parse_range(arguments[1]) : Range();
    auto task = std::make_unique<ListQueue>(queue.entries(), range, form);
    // A version above the present one is from an earlier run of the bridge: every entry counts as
    // changed.
    task->only_after(version > queue.version() ? 0 : version);
    return task;
}

TaskPtr list_matching(Context &context, Arguments arguments, Filter::Case letters) {
    auto task =
        std::make_unique<ListQueue>(context.partition.queue().entries(), Range(), Form::song);
    task->only_matching(Filter::parse(arguments, letters));
    return task;
}

} // namespace

TaskPtr run_playlistinfo(Context &context, Arguments arguments) {
    if (arguments.empty() || arguments[0] == everything) {
        return list(context, Range(), Form::song);
    }
    return list(context, checked_range(context.partition.queue().size(), arguments[0]), Form::song);
}

TaskPtr run_playlistid(Context &context, Arguments arguments) {
    if (arguments.empty()) {
        return list(context, Range(), Form::song);
    }
    const uint32_t position = position_of(context.partition.queue(), arguments[0]);
    return list(context, {position, position + 1}, Form::song);
}

TaskPtr run_playlist(Context &context, Arguments) {
    return list(context, Range(), Form::uri);
}

TaskPtr run_plchanges(Context &context, Arguments arguments) {
    return list_changes(context, arguments, Form::song);
}

TaskPtr run_plchangesposid(Context &context, Arguments arguments) {
    return list_changes(context, arguments, Form::position_and_id);
}

TaskPtr run_playlistfind(Context &context, Arguments arguments) {
    return list_matching(context, arguments, Filter::Case::as_written);
}

TaskPtr run_playlistsearch(Context &context, Arguments arguments) {
    return list_matching(context, arguments, Filter::Case::folded);
}

} // namespace vantro::mpd
