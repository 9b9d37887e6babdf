#include "bench/run.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

namespace vantro::bench {

bool Run::wants(const std::string &name) const {
    return only.empty() || std::find(only.begin(), only.end(), name) != only.end();
}

void Run::against_floor(const std::vector<Contender> &contenders, size_t usual_iterations,
                        bool floor_row) {
    Floor floor;
    std::vector<Batch> batches{floor.batch()};
    for (const Contender &contender : contenders) {
        batches.push_back(contender.batch);
    }
    const std::vector<Samples> samples =
        alternate(batches, iterations_or(usual_iterations), batch_size);

    const double floor_median = samples[0].percentile_us(0.5);
    if (floor_row) {
        add("floor", samples[0], floor_median, 1);
    }
    for (size_t i = 0; i < contenders.size(); ++i) {
        add(contenders[i].name, samples[i + 1], floor_median, contenders[i].server_threads);
    }
}

void Run::add(const std::string &name, const Samples &samples, std::optional<double> floor_median,
              int server_threads) {
    Row row{name, "us",          samples.percentile_us(0.5), samples.percentile_us(0.99),
            {},   server_threads};
    if (floor_median) {
        row.floor_ratio = row.median / *floor_median;
    }
    rows.push_back(row);
}

void Run::add(Row row, int tracks_there, const std::string &remark) {
    row.tracks = tracks_there;
    row.note = fmt::format("{} tracks; {}", tracks_there, remark);
    rows.push_back(std::move(row));
}

} // namespace vantro::bench
