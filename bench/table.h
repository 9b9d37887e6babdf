// What a run found, as a table for a reader and as JSON for scripts.
#ifndef VANTRO_BENCH_TABLE_H
#define VANTRO_BENCH_TABLE_H

#include <optional>
#include <string>
#include <vector>

namespace vantro::bench {

struct Row {
    std::string name;
    std::string unit;
    double median = 0;
    double p99 = 0;
    std::optional<double> floor_ratio; /**< Median against the floor's; empty where none applies. */
    int server_threads = 0;            /**< 0: no server takes part. */
};

void print_table(const std::vector<Row> &rows);

/** @return false with errno when the file cannot be written. */
bool write_json(const std::vector<Row> &rows, const std::string &path);

} // namespace vantro::bench

#endif
