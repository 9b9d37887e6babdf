// Packing and unpacking a listing of 10,000 nodes, without a service.
#include <memory>
#include <string>
#include <vector>

#include <vantro/extras.h>
#include <vantro/records.h>

#include <fmt/format.h>

#include "bench/process.h"
#include "bench/run.h"

namespace vantro::bench {

namespace {

constexpr int node_count = 10000;
constexpr size_t usual_iterations = 200;

// Nodes whose ids and names are as long as those of real songs.
class Listing {
  public:
    Listing() {
        for (int i = 0; i < node_count; ++i) {
            texts_.push_back(fmt::format("Music/Artist {}/Album/{:05}.flac", i / 100, i));
            texts_.push_back(fmt::format("Title of the track number {}", i));
        }
        for (int i = 0; i < node_count; ++i) {
            const auto place = static_cast<size_t>(i) * 2;
            nodes_.push_back({texts_[place].c_str(), texts_[place + 1].c_str(), 0, 1, 0, 1, 1, 0});
        }
        bytes_.resize(static_cast<size_t>(compute_media_node_size(nodes_.data(), node_count)));
        pack();
    }

    void pack() {
        int written = 0;
        pack_media_node(nodes_.data(), node_count, bytes_.data(), &written);
        if (written != static_cast<int>(bytes_.size())) {
            fail("packing wrote another number of bytes than the sizing function said");
        }
    }

    // Unpacks and frees, since every listing is freed at some time.
    void unpack() {
        MediaNode *nodes = nullptr;
        if (unpack_media_node(bytes_.data(), static_cast<int>(bytes_.size()), node_count, &nodes) !=
            0) {
            fail("a packed listing was not unpacked");
        }
        vantro_free_media_nodes(nodes, node_count);
    }

  private:
    std::vector<std::string> texts_;
    std::vector<ServiceMediaNode> nodes_;
    std::vector<char> bytes_;
};

} // namespace

void record_rows(Run &run) {
    Listing listing;
    const size_t iterations = run.iterations_or(usual_iterations);
    if (run.wants("pack_nodes_10k")) {
        run.add("pack_nodes_10k", alternate({each([&] { listing.pack(); })}, iterations, 10)[0], {},
                0);
    }
    if (run.wants("unpack_nodes_10k")) {
        run.add("unpack_nodes_10k", alternate({each([&] { listing.unpack(); })}, iterations, 10)[0],
                {}, 0);
    }
}

} // namespace vantro::bench
