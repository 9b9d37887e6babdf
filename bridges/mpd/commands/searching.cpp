// Songs that a filter lets pass: shown, or added to the queue.
#include <algorithm>
#include <charconv>
#include <chrono>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "bridges/mpd/ack.h"
#include "bridges/mpd/catalogue.h"
#include "bridges/mpd/client.h"
#include "bridges/mpd/commands/handlers.h"
#include "bridges/mpd/commands/queue_edit.h"
#include "bridges/mpd/commands/search_options.h"
#include "bridges/mpd/partition.h"
#include "bridges/mpd/song_scan.h"

namespace vantro::mpd {
namespace {

using Knowledge = Filter::Knowledge;

// Songs that are kept to be sorted, and the bytes that they are sorted by.
constexpr size_t sorted_max = 100'000;
constexpr size_t sorted_bytes_max = 32 * 1024 * 1024;

// Nodes that are added at once. A request of the service has room for twice as much.
constexpr size_t nodes_bytes = 1024 * 1024;

// Other clients wait no longer than that, and than one page of the catalogue takes.
constexpr std::chrono::milliseconds step_time(4);
constexpr uint32_t songs_a_step = 64;

// A text by which songs are in order.
std::string sort_key(const Song &song, const SearchOptions::Sort &sort) {
    constexpr int digits = 20;
    if (sort.modified) {
        return fmt::format("{:0{}}", song.modified, digits);
    }
    const std::string &value = song.tag_or_fallback(sort.tag);
    if (sort.tag != Tag::track && sort.tag != Tag::disc) {
        return folded(value);
    }
    uint32_t number = 0;
    std::from_chars(value.data(), value.data() + value.size(), number);
    return fmt::format("{:0{}}", number, digits);
}

// Calls `take` for each match until it returns false. @return whether there are no more.
class MatchingSongs : public Task {
  public:
    explicit MatchingSongs(SearchOptions options)
        : options_(std::move(options)), scan_(options_.filter, Knowledge::everything) {}

    bool step(Context &context) override {
        const auto end = std::chrono::steady_clock::now() + step_time;
        for (uint32_t told = 0; !scanned_ && told < songs_a_step;) {
            if (const SongPtr song = scan_.next(context.partition.player(), context.catalogue)) {
                ++told;
                scanned_ = !look_at(context, song);
            }
            scanned_ = scanned_ || scan_.at_end();
            if (std::chrono::steady_clock::now() >= end) {
                return false;
            }
        }
        return scanned_ && finish(context);
    }

  protected:
    // One song within the window, in its order.
    virtual void take(Context &context, const Song &song) = 0;
    // @return whether all is done.
    virtual bool finish(Context &context) = 0;

    // Takes the sorted songs, a few at a time. @return whether those were all.
    bool take_sorted(Context &context) {
        if (!options_.sort) {
            return true;
        }
        if (!std::exchange(is_sorted_, true)) {
            const bool down = options_.sort->descending;
            std::stable_sort(sorted_.begin(), sorted_.end(), [down](const auto &a, const auto &b) {
                return down ? b.first < a.first : a.first < b.first;
            });
            at_ = options_.window.begin;
        }
        const size_t end = std::min<size_t>(options_.window.end, sorted_.size());
        for (uint32_t count = 0; at_ < end && count < songs_a_step; ++count, ++at_) {
            const NodeKey &key = sorted_[at_].second;
            take(context, *context.catalogue.song(context.partition.player(), key));
        }
        return at_ >= end;
    }

    const SearchOptions options_;

  private:
    // @return whether more songs are wanted.
    bool look_at(Context &context, const SongPtr &song) {
        if (options_.sort) {
            sorted_.emplace_back(sort_key(*song, *options_.sort), song->key);
            sorted_bytes_ += sorted_.back().first.size();
            if (sorted_.size() > sorted_max || sorted_bytes_ > sorted_bytes_max) {
                throw Ack(AckCode::argument, "too many songs to be sorted");
            }
            return true;
        }
        const Range &window = options_.window;
        if (at_ >= window.begin && at_ < window.end) {
            take(context, *song);
        }
        ++at_;
        return at_ < window.end;
    }

    SongScan scan_;
    bool scanned_ = false;
    size_t at_ = 0; // Matches so far; after sorting, the next one to be taken.
    bool is_sorted_ = false;
    size_t sorted_bytes_ = 0;
    std::vector<std::pair<std::string, NodeKey>> sorted_;
};

class ShowSongs : public MatchingSongs {
  public:
    using MatchingSongs::MatchingSongs;

  private:
    void take(Context &context, const Song &song) override {
        context.reply.song(song, context.client.shown_tags);
    }
    bool finish(Context &context) override { return take_sorted(context); }
};

class AddSongs : public MatchingSongs {
  public:
    AddSongs(SearchOptions options, QueueTarget target)
        : MatchingSongs(std::move(options)), target_(target) {}

  private:
    void take(Context &context, const Song &song) override {
        nodes_ += fmt::format("{}{}:{}", nodes_.empty() ? "" : "\n", song.key.source, song.key.id);
        if (nodes_.size() > nodes_bytes) {
            add(context);
        }
    }
    bool finish(Context &context) override {
        if (!take_sorted(context)) {
            return false;
        }
        add(context);
        return true;
    }
    void add(Context &context) {
        if (!nodes_.empty()) {
            target_.position += add_nodes(context, nodes_, target_);
            nodes_.clear();
        }
    }

    QueueTarget target_;
    std::string nodes_;
};

TaskPtr show(Arguments arguments, Filter::Case letters) {
    return std::make_unique<ShowSongs>(SearchOptions::parse(arguments, letters));
}

TaskPtr add(Context &context, Arguments arguments, Filter::Case letters) {
    SearchOptions options = SearchOptions::parse(arguments, letters);
    const QueueTarget target = target_of(context, options.position);
    return std::make_unique<AddSongs>(std::move(options), target);
}

} // namespace

TaskPtr run_find(Context &, Arguments arguments) {
    return show(arguments, Filter::Case::as_written);
}

TaskPtr run_search(Context &, Arguments arguments) {
    return show(arguments, Filter::Case::folded);
}

TaskPtr run_findadd(Context &context, Arguments arguments) {
    return add(context, arguments, Filter::Case::as_written);
}

TaskPtr run_searchadd(Context &context, Arguments arguments) {
    return add(context, arguments, Filter::Case::folded);
}

} // namespace vantro::mpd
