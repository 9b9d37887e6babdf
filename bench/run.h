// One run of the benchmark: its options, and its results so far.
#ifndef VANTRO_BENCH_RUN_H
#define VANTRO_BENCH_RUN_H

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "bench/floor.h"
#include "bench/measure.h"
#include "bench/table.h"

namespace vantro::bench {

// Exchanges in one turn of a contender.
constexpr size_t batch_size = 100;

struct Contender {
    std::string name;
    int server_threads;
    Batch batch;
};

class Run {
  public:
    std::vector<std::string> only; // Rows wanted; empty: all.
    size_t iterations = 0;         // Of every row; 0: each row's own.
    int tracks = 100000;           // Of the large collection.
    std::string directory;         // Private, removed after the run.
    std::vector<Row> rows;

    bool wants(const std::string &name) const;

    size_t iterations_or(size_t usual) const { return iterations ? iterations : usual; }

    // Measures contenders and the floor in turns and adds a row each, with its ratio to the floor
    // of the same turns.
    // @param floor_row adds the floor's samples as a row too.
    void against_floor(const std::vector<Contender> &contenders, size_t usual_iterations,
                       bool floor_row = false);

    void add(const std::string &name, const Samples &samples, std::optional<double> floor_median,
             int server_threads);

    // Adds a row about the large collection.
    void add(Row row, int tracks_there, const std::string &remark);
};

// Each adds those of its rows that the run wants.
void putget_rows(Run &run);
void busy_rows(Run &run);
void crowd_rows(Run &run);
void play_row(Run &run);
void command_rows(Run &run);
void sound_rows(Run &run);
void event_rows(Run &run);
void idle_row(Run &run);
void record_rows(Run &run);
void memory_row(Run &run);
void catalogue_rows(Run &run);

// The bench's own service, in a process of its own: answers until it is ended.
int serve_putget(int threads, const char *instance);

// Exchanges for ever, and counts the exchanges in the memory file.
int call_for_ever(int descriptor);

// Computes for ever, at that nice value.
int keep_busy(int nice);

// Does `count` small exchanges with the bench's own service, so that a tracer can count its system
// calls.
int trace_exchanges(size_t count);

// Gets `count` events of the bench's own player, which publishes nothing meanwhile.
int trace_event_gets(size_t count);

} // namespace vantro::bench

#endif
