// What a listing costs besides its messages: vantrod's own parts and the library's unpacker, alone
// in this process.
#ifndef VANTRO_BENCH_QUERY_H
#define VANTRO_BENCH_QUERY_H

#include <string>

#include "bench/measure.h"

namespace vantro::bench {

struct OwnQuery {
    Samples samples;         /**< From the request's bytes to the answer's. */
    Samples unpacking;       /**< From the answer's bytes to its nodes. */
    size_t answer_bytes = 0; /**< Result word, count and records. */
};

/**
 * Asks a catalogue that vantrod has made, and has left, for the first entries of "songs".
 * @param source the id of its source.
 */
OwnQuery time_query(const std::string &music, const std::string &state, int32_t source,
                    int32_t count, size_t iterations);

} // namespace vantro::bench

#endif
