#include "service/memory_return.h"

#include <fstream>
#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

namespace vantro::service {

namespace {

size_t resident_bytes() {
    size_t all = 0;
    size_t resident = 0;
    std::ifstream("/proc/self/statm") >> all >> resident;
    return resident * static_cast<size_t>(getpagesize());
}

TEST(MemoryReturn, GivesBackWhatIsFreeBelowWhatIsInUse) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers bring an allocator of their own";
#endif
    constexpr size_t block = 4096;
    constexpr size_t count = 16384;
    MemoryReturn memory(std::chrono::milliseconds(1));
    memory.start();
    for (int load = 0; load < 2; ++load) {
        std::vector<std::unique_ptr<char[]>> blocks(count);
        for (auto &each : blocks) {
            each.reset(new char[block]());
        }
        const size_t high = resident_bytes();
        const auto last = std::move(blocks.back()); // or the heap would shrink by itself
        blocks.clear();
        ASSERT_GT(resident_bytes(), high - block * count / 4) << "nothing was kept";
        memory.note();
        while (resident_bytes() > high - block * count / 2) {
            std::this_thread::yield();
        }
    }
}

} // namespace

} // namespace vantro::service
