// Values of tags, and numbers of songs.
#include <algorithm>
#include <chrono>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "bridges/mpd/ack.h"
#include "bridges/mpd/catalogue.h"
#include "bridges/mpd/commands/handlers.h"
#include "bridges/mpd/commands/search_options.h"
#include "bridges/mpd/partition.h"
#include "bridges/mpd/song_scan.h"

namespace vantro::mpd {
namespace {

using Knowledge = Filter::Knowledge;

// Most different values that are collected from all songs, and most bytes of them.
constexpr size_t values_max = 200'000;
constexpr size_t values_bytes_max = 32 * 1024 * 1024;

constexpr std::chrono::milliseconds step_time(4);
constexpr int looks_a_check = 32; // songs between two reads of the clock
constexpr int rows_a_step = 256;

// Groups songs by the values of some tags, and counts the songs and adds their durations.
class Summarize : public Task {
  public:
    // @param counts whether to report numbers; otherwise reports the values of the last tag.
    Summarize(Filter filter, std::vector<Tag> tags, bool counts)
        : tags_(std::move(tags)), counts_(counts), is_slow_(filter.is_slow()),
          scan_(std::move(filter),
                std::all_of(tags_.begin(), tags_.end(), is_listed) ? Knowledge::listed
                                                                   : Knowledge::everything,
                SongScan::Order::any) {}

    bool step(Context &context) override {
        const auto end = std::chrono::steady_clock::now() + step_time;
        for (int looks = 1; !scan_.at_end(); ++looks) {
            if (const SongPtr song = scan_.next(context.partition.player(), context.catalogue)) {
                take(*song);
            }
            if ((looks % looks_a_check == 0 || is_slow_) &&
                std::chrono::steady_clock::now() >= end) {
                return false;
            }
        }
        return tell(context.reply);
    }

  private:
    using Values = std::vector<std::string>;
    struct Sum {
        int64_t songs = 0;
        int64_t ms = 0;
    };

    // Songs come in the order of directories, so most have the values of the previous song.
    void take(const Song &song) {
        if (last_ == sums_.end() || !has_values(song, last_->first)) {
            last_ = find_or_add(song);
        }
        ++last_->second.songs;
        last_->second.ms += song.duration_ms;
    }

    bool has_values(const Song &song, const Values &values) const {
        for (size_t i = 0; i < tags_.size(); ++i) {
            if (song.tag_or_fallback(tags_[i]) != values[i]) {
                return false;
            }
        }
        return true;
    }

    std::map<Values, Sum>::iterator find_or_add(const Song &song) {
        Values values;
        for (const Tag tag : tags_) {
            values.push_back(song.tag_or_fallback(tag));
        }
        const auto [found, is_new] = sums_.try_emplace(std::move(values));
        if (is_new) {
            for (const std::string &value : found->first) {
                bytes_ += value.size();
            }
            if (sums_.size() > values_max || bytes_ > values_bytes_max) {
                throw Ack(AckCode::argument, "too many different values");
            }
        }
        return found;
    }

    bool tell(Reply &reply) {
        if (!std::exchange(telling_, true)) {
            if (counts_ && tags_.empty()) {
                sums_.try_emplace({});
            }
            at_ = sums_.begin();
        }
        for (int count = 0; at_ != sums_.end() && count < rows_a_step; ++at_, ++count) {
            tell_row(reply, at_->first, at_->second);
        }
        return at_ == sums_.end();
    }

    void tell_row(Reply &reply, const Values &values, const Sum &sum) {
        bool differs = !told_;
        for (size_t i = 0; i < tags_.size(); ++i) {
            differs = differs || values[i] != (*told_)[i];
            if (differs && tags_[i] != Tag::absent) {
                reply.pair(tag_names[index_of(tags_[i])].name, values[i]);
            }
        }
        if (counts_) {
            reply.number("songs", sum.songs);
            reply.number("playtime", sum.ms / 1000);
        }
        told_ = values;
    }

    const std::vector<Tag> tags_;
    const bool counts_;
    const bool is_slow_;
    SongScan scan_;
    std::map<Values, Sum> sums_;
    std::map<Values, Sum>::iterator last_ = sums_.end(); // The entry of the previous song.
    size_t bytes_ = 0;
    bool telling_ = false;
    std::map<Values, Sum>::const_iterator at_;
    std::optional<Values> told_;
};

TaskPtr count(Arguments arguments, Filter::Case letters) {
    SearchOptions options = SearchOptions::parse(arguments, letters);
    return std::make_unique<Summarize>(std::move(options.filter), std::move(options.groups), true);
}

} // namespace

TaskPtr run_count(Context &, Arguments arguments) {
    return count(arguments, Filter::Case::as_written);
}

TaskPtr run_searchcount(Context &, Arguments arguments) {
    return count(arguments, Filter::Case::folded);
}

TaskPtr run_list(Context &, Arguments arguments) {
    if (same_name(arguments[0], "file")) {
        return list_files(arguments.subspan(1));
    }
    const Tag tag = need_tag(arguments[0]);
    std::vector<std::string> rest(arguments.begin() + 1, arguments.end());
    // An older form: the albums of an artist.
    if (rest.size() == 1 && !rest[0].starts_with('(')) {
        if (tag != Tag::album) {
            throw Ack(AckCode::argument, "a filter is missing");
        }
        rest.insert(rest.begin(), "Artist");
    }
    SearchOptions options = SearchOptions::parse(rest, Filter::Case::as_written);
    std::vector<Tag> tags = std::move(options.groups);
    tags.push_back(tag);
    return std::make_unique<Summarize>(std::move(options.filter), std::move(tags), false);
}

} // namespace vantro::mpd
