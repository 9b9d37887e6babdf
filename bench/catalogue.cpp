// vantrod with a large collection: scanning, listing, searching, starting again, and memory.
#include <algorithm>
#include <array>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <vantro/extras.h>
#include <vantro/player.h>
#include <vantro/records.h>

#include <fmt/format.h>

#include "bench/collection.h"
#include "bench/own_query.h"
#include "bench/plain_copy.h"
#include "bench/run.h"
#include "bench/service.h"

namespace vantro::bench {

namespace {

constexpr const char *scan_row = "scan_files";
constexpr const char *memory_after_row = "service_memory_100k";
constexpr const char *list_row = "list_10k";
constexpr const char *copy_row = "list_10k_copy";
constexpr const char *page_row = "browse_page_100k";
constexpr const char *described_row = "page_metadata_100k";
constexpr const char *search_row = "search_prefix_100k";
constexpr const char *second_row = "second_start_first_browse";
constexpr std::array all_rows{scan_row, memory_after_row, list_row,   copy_row,
                              page_row, described_row,    search_row, second_row};

constexpr int list_nodes = 10000;
constexpr const char *query_state = "catalogue-for-the-query";
constexpr int page_nodes = 100;
constexpr size_t large_batch = 10;

struct Collection {
    std::string music;
    std::string state;
    int tracks = 0;
};

Row timed(const char *name, const Samples &samples) {
    return {
        name, "us", samples.percentile_us(0.5), samples.percentile_us(0.99), {}, Service::threads};
}

int32_t only_source(VantroHandle *player) {
    MediaSource *sources = nullptr;
    int count = 0;
    if (vantro_get_media_sources(player, &sources, &count) != 0 || count != 1) {
        fail("vantrod does not have one source");
    }
    const int32_t id = sources[0].id;
    vantro_free_media_sources(sources, count);
    return id;
}

using Asking = std::function<int(int *count, MediaNode **nodes)>;

// Browses, frees the nodes, and returns their number. Only the browsing is timed.
int nodes_of(const Asking &query, int count, Samples *samples) {
    MediaNode *nodes = nullptr;
    const int64_t begin = now_ns();
    if (query(&count, &nodes) != 0) {
        fail("vantrod refused a listing");
    }
    if (samples) {
        samples->add(now_ns() - begin);
    }
    vantro_free_media_nodes(nodes, count);
    return count;
}

void browse_songs(VantroHandle *player, int32_t source, int offset, int count, int expected,
                  Samples *samples = nullptr) {
    const int found = nodes_of(
        [&](int *wanted, MediaNode **nodes) {
            return vantro_browse(player, source, "songs", offset, wanted, nodes);
        },
        count, samples);
    if (found != expected) {
        fail(fmt::format("{} songs came, not {}", found, expected));
    }
}

// A page of songs, each with its metadata, from any place in the list.
void describe_songs(VantroHandle *player, int32_t source, int offset, Samples &samples) {
    MediaNode *nodes = nullptr;
    Metadata *metadata = nullptr;
    int count = page_nodes;
    const int64_t begin = now_ns();
    if (vantro_browse_metadata(player, source, "songs", offset, &count, &nodes, &metadata) != 0) {
        fail("vantrod refused a listing with metadata");
    }
    samples.add(now_ns() - begin);
    vantro_free_media_nodes(nodes, count);
    vantro_free_metadata(metadata, count);
}

// The search terms of a user who looks for one title after another: the first word of each, letter
// by letter.
class Typing {
  public:
    explicit Typing(int tracks) : tracks_(static_cast<size_t>(tracks)) {}

    std::string next() {
        do {
            ++length_;
        } while (length_ < word_.size() && (word_[length_] & 0xC0) == 0x80); // within a character
        if (length_ > word_.size()) {
            song_ = (song_ + 7919) % tracks_;
            const std::string title = song_title(song_);
            word_ = title.substr(0, title.find(' '));
            length_ = 0;
            return next();
        }
        return word_.substr(0, length_);
    }

  private:
    size_t tracks_;
    size_t song_ = 0;
    size_t length_ = 0;
    std::string word_;
};

void search_page(VantroHandle *player, int32_t source, const std::string &term,
                 Samples *samples = nullptr) {
    const int found = nodes_of(
        [&](int *wanted, MediaNode **nodes) {
            return vantro_search(player, source, nullptr, term.c_str(), 0, wanted, nodes);
        },
        page_nodes, samples);
    if (found == 0) {
        fail("nothing is found for " + term);
    }
}

// Returns the id of the only source.
int32_t first_scan(Run &run, const Collection &collection) {
    Service service(collection.music, collection.state);
    const int64_t begin = now_ns();
    service.wait_until_scanned();
    const double seconds = static_cast<double>(now_ns() - begin) / 1e9;
    const double rate = collection.tracks / seconds;
    if (run.wants(scan_row)) {
        run.add({scan_row, "files/s", rate, rate}, collection.tracks,
                fmt::format("took {:.2f} s", seconds));
    }

    const Player player = open_player();
    const int32_t source = only_source(player.get());
    browse_songs(player.get(), source, 0, 0, collection.tracks);
    if (!run.wants(memory_after_row)) {
        return source;
    }
    // Measured after some requests: what the service keeps for answers is part of its memory.
    Typing typing(collection.tracks);
    for (int i = 0; i < page_nodes; ++i) {
        search_page(player.get(), source, typing.next());
    }
    const double mebibytes = pss_bytes(service.pid()) / (1024 * 1024);
    run.add({memory_after_row, "MiB", mebibytes, mebibytes, {}, Service::threads},
            collection.tracks,
            fmt::format("most resident ever {:.1f} MiB",
                        most_resident_bytes(service.pid()) / (1024 * 1024)));
    return source;
}

// Unpacks the answer's bytes into nodes. Freeing them is not timed: the application does that
// later.
Samples unpack(const std::vector<char> &answer, int count, size_t iterations) {
    constexpr size_t records_at = 8;
    Samples samples;
    for (size_t i = 0; i < iterations; ++i) {
        MediaNode *nodes = nullptr;
        const int64_t begin = now_ns();
        if (unpack_media_node(answer.data() + records_at,
                              static_cast<int>(answer.size() - records_at), count, &nodes) != 0) {
            fail("the answer of the service's parts was not unpacked");
        }
        samples.add(now_ns() - begin);
        vantro_free_media_nodes(nodes, count);
    }
    return samples;
}

// The listing, the bare copy and the query take turns, so that other load on the machine slows all
// three.
void list_rows(Run &run, const Collection &collection, VantroHandle *player, int32_t source) {
    OwnQuery own(run.directory, query_state, source, list_nodes);
    PlainCopy copy(own.answer().size());
    const int count = std::min(list_nodes, collection.tracks);
    const Batch list = [&](size_t times, Samples &samples) {
        for (size_t i = 0; i < times; ++i) {
            browse_songs(player, source, 0, list_nodes, count, &samples);
        }
    };
    const std::vector<Samples> samples =
        alternate({list, copy.batch(), own.batch()}, run.iterations_or(200), large_batch);
    const double listed = samples[0].percentile_us(0.5);
    const double copied = samples[1].percentile_us(0.5);
    const double queried = samples[2].percentile_us(0.5);
    const double unpacked = unpack(own.answer(), count, run.iterations_or(200)).percentile_us(0.5);
    if (run.wants(list_row)) {
        Row row = timed(list_row, samples[0]);
        row.copy_ratio = listed / copied;
        row.query = queried;
        row.unpack = unpacked;
        run.add(row, collection.tracks,
                fmt::format("{} nodes; {:.2f} x copy without the query's own {:.0f} us; of that "
                            "unpacking, alone, {:.0f} us",
                            count, (listed - queried) / copied, queried, unpacked));
    }
    if (run.wants(copy_row)) {
        run.add({copy_row, "us", copied, samples[1].percentile_us(0.99)}, collection.tracks,
                fmt::format("{} bytes", own.answer().size()));
    }
}

void query_rows(Run &run, const Collection &collection, int32_t source) {
    const bool lists = run.wants(list_row) || run.wants(copy_row);
    if (!lists && !run.wants(page_row) && !run.wants(described_row) && !run.wants(search_row)) {
        return;
    }
    const Apart apart;
    if (lists) { // no scan writes to the catalogue meanwhile
        std::filesystem::copy(collection.state, run.directory + '/' + query_state,
                              std::filesystem::copy_options::recursive);
    }
    Service service(collection.music, collection.state);
    service.wait_until_scanned();
    const Player player = open_player();
    if (lists) {
        list_rows(run, collection, player.get(), source);
    }
    const auto row = [&](const char *name, const Batch &batch) {
        const Samples samples = alternate({batch}, run.iterations_or(2000), batch_size)[0];
        run.add(timed(name, samples), collection.tracks,
                fmt::format("{} nodes at most", page_nodes));
    };
    const int count = std::min(page_nodes, collection.tracks);
    int page = 0;
    const auto next_page = [&] { return page = (page + 7919) % (collection.tracks - count + 1); };
    if (run.wants(page_row)) {
        row(page_row, [&](size_t times, Samples &samples) {
            for (size_t i = 0; i < times; ++i) {
                browse_songs(player.get(), source, next_page(), page_nodes, count, &samples);
            }
        });
    }
    if (run.wants(described_row)) {
        row(described_row, [&](size_t times, Samples &samples) {
            for (size_t i = 0; i < times; ++i) {
                describe_songs(player.get(), source, next_page(), samples);
            }
        });
    }
    if (run.wants(search_row)) {
        Typing typing(collection.tracks);
        row(search_row, [&](size_t times, Samples &samples) {
            for (size_t i = 0; i < times; ++i) {
                search_page(player.get(), source, typing.next(), &samples);
            }
        });
    }
}

void second_start(Run &run, const Collection &collection, int32_t source) {
    if (!run.wants(second_row)) {
        return;
    }
    Samples samples;
    for (size_t i = 0; i < run.iterations_or(20); ++i) {
        const int64_t begin = now_ns();
        const Service service(collection.music, collection.state);
        const Player player = open_player();
        browse_songs(player.get(), source, 0, page_nodes, std::min(page_nodes, collection.tracks));
        samples.add(now_ns() - begin);
    }
    run.add(timed(second_row, samples), collection.tracks, "from before the start of the process");
}

} // namespace

void catalogue_rows(Run &run) {
    if (std::none_of(all_rows.begin(), all_rows.end(),
                     [&](const char *name) { return run.wants(name); })) {
        return;
    }
    const Collection collection{run.directory + "/collection", run.directory + "/catalogue",
                                run.tracks};
    make_collection(collection.music, static_cast<size_t>(collection.tracks));
    const int32_t source = first_scan(run, collection);
    query_rows(run, collection, source);
    second_start(run, collection, source);
}

} // namespace vantro::bench
