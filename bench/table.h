// The results of a run, as a table for people and as JSON for scripts.
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
    std::optional<double> floor_ratio{}; // Median against the floor's; empty if there is none.
    int server_threads = 0;              // 0: no server takes part.
    int tracks = 0;                      // In the collection that was measured; 0: none.
    std::optional<double> copy_ratio{};  // Median against the bare copy's.
    std::optional<double> query{};       // The time of the service's query, in the row's unit.
    std::optional<double> unpack{};      // The time that the client takes to unpack.
    std::optional<double> ratio{};       // Median against that of the row in the note.
    std::string note{};                  // For people.
};

void print_table(const std::vector<Row> &rows);

// @return false with errno when the file cannot be written.
bool write_json(const std::vector<Row> &rows, const std::string &path);

} // namespace vantro::bench

#endif
