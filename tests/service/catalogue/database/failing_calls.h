// System calls that fail while a test wants that.
#ifndef VANTRO_TESTS_SERVICE_CATALOGUE_DATABASE_FAILING_CALLS_H
#define VANTRO_TESTS_SERVICE_CATALOGUE_DATABASE_FAILING_CALLS_H

#include <atomic>

namespace vantro::service::catalogue {

inline std::atomic<bool> music_reads_fail = false;  // with EIO, below a directory named "music"
inline std::atomic<bool> large_blocks_fail = false; // blocks of memory above 1 MiB

} // namespace vantro::service::catalogue

#endif
