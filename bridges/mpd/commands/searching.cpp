// Showing the songs that match a filter, or adding them to the queue.
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

// Most songs that are sorted at a time, and most bytes of their sort keys.
constexpr size_t sorted_max = 100'000;
constexpr size_t sorted_bytes_max = 32 * 1024 * 1024;

// Bytes of nodes that are added at a time. A request has room for twice as much.
constexpr size_t nodes_bytes = 1024 * 1024;

// The bound for one step: other clients wait this long, or for one page of the catalogue.
constexpr std::chrono::milliseconds step_time(4);
constexpr uint32_t looks_a_check = 32; // songs between two reads of the clock
constexpr uint32_t songs_a_step = 64;

// The sort key of a song.
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

// A sort key for the order in which directories are listed: directories by name, before the songs
// beside them; songs by album, disc and track.
std::string place_key(const Song &song) {
    std::string key;
    std::string_view rest = song.uri;
    for (size_t slash; (slash = rest.find('/')) != std::string_view::npos;) {
        key.append(1, '\1').append(rest.substr(0, slash)).append(1, '\0');
        rest.remove_prefix(slash + 1);
    }
    key += '\2';
    SearchOptions::Sort by;
    for (const Tag tag : {Tag::album, Tag::disc, Tag::track}) {
        by.tag = tag;
        key += sort_key(song, by) + '\0';
    }
    return key.append(rest);
}

// Handles each match within the window, in the requested order, or else in the order of the
// directories.
class MatchingSongs : public Task {
  public:
    explicit MatchingSongs(SearchOptions options)
        : options_(std::move(options)),
          scan_(options_.filter, Knowledge::everything, SongScan::Order::folders) {}

    bool step(Context &context) override {
        if (is_sorted_ && !take_sorted(context)) {
            return false;
        }
        const auto end = std::chrono::steady_clock::now() + step_time;
        scanned_ = scanned_ || at_ >= options_.window.end;
        for (uint32_t told = 0, looks = 1; !scanned_ && told < songs_a_step; ++looks) {
            if (const SongPtr song = scan_.next(context.partition.player(), context.catalogue)) {
                ++told;
                look_at(context, song);
            }
            scanned_ = scan_.at_end() || at_ >= options_.window.end;
            const bool checks = looks % looks_a_check == 0 || options_.filter.is_slow();
            if (is_full() || (checks && std::chrono::steady_clock::now() >= end)) {
                break;
            }
        }
        if (is_full()) {
            if (options_.sort) {
                throw Ack(AckCode::argument, "too many songs to be sorted");
            }
            take_sorted(context); // Sort and take one block, then the next one.
            return false;
        }
        return scanned_ && take_sorted(context) && finish(context);
    }

  protected:
    // Handles one song within the window, in order.
    virtual void take(Context &context, const Song &song) = 0;
    // Called after the last song. @return whether the answer is complete.
    virtual bool finish(Context &context) = 0;

  private:
    bool is_full() const { return sorted_.size() > sorted_max || sorted_bytes_ > sorted_bytes_max; }

    void look_at(Context &context, const SongPtr &song) {
        if (options_.sort || !scan_.is_in_order()) {
            sorted_.emplace_back(options_.sort ? sort_key(*song, *options_.sort) : place_key(*song),
                                 song->key);
            sorted_bytes_ += sorted_.back().first.size();
            return;
        }
        if (at_++ >= options_.window.begin) {
            take(context, *song);
        }
    }

    // Handles the sorted songs, a few at a time. @return whether all were handled.
    bool take_sorted(Context &context) {
        if (!std::exchange(is_sorted_, true)) {
            const bool down = options_.sort && options_.sort->descending;
            std::stable_sort(sorted_.begin(), sorted_.end(), [down](const auto &a, const auto &b) {
                return down ? b.first < a.first : a.first < b.first;
            });
        }
        const Range &window = options_.window;
        for (uint32_t count = 0; next_ < sorted_.size() && at_ < window.end; ++next_, ++at_) {
            if (at_ < window.begin) {
                continue;
            }
            if (count++ == songs_a_step) {
                return false;
            }
            const NodeKey &key = sorted_[next_].second;
            if (const SongPtr song =
                    context.catalogue.song_if_there(context.partition.player(), key)) {
                take(context, *song);
            }
        }
        sorted_.clear();
        sorted_bytes_ = 0;
        next_ = 0;
        is_sorted_ = false;
        return true;
    }

    const SearchOptions options_;
    SongScan scan_;
    bool scanned_ = false;
    size_t at_ = 0;                                       // The number of handled matches.
    std::vector<std::pair<std::string, NodeKey>> sorted_; // The songs that are being sorted.
    size_t sorted_bytes_ = 0;
    bool is_sorted_ = false; // `sorted_` is in order, and its songs are being handled.
    size_t next_ = 0;        // The index of the next song to handle.
};

class ShowSongs : public MatchingSongs {
  public:
    using MatchingSongs::MatchingSongs;

  private:
    void take(Context &context, const Song &song) override {
        context.reply.song(song, context.client.shown_tags);
    }
    bool finish(Context &) override { return true; }
};

class ShowUris : public MatchingSongs {
  public:
    using MatchingSongs::MatchingSongs;

  private:
    void take(Context &context, const Song &song) override { context.reply.pair("file", song.uri); }
    bool finish(Context &) override { return true; }
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

TaskPtr list_files(Arguments filter) {
    return std::make_unique<ShowUris>(SearchOptions::parse(filter, Filter::Case::as_written));
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
