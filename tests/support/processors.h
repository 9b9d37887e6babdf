// Where threads of a test may run.
#ifndef VANTRO_TESTS_SUPPORT_PROCESSORS_H
#define VANTRO_TESTS_SUPPORT_PROCESSORS_H

#include <sched.h>

namespace vantro::test {

inline cpu_set_t mask_of_this_thread() {
    cpu_set_t mask;
    CPU_ZERO(&mask);
    sched_getaffinity(0, sizeof mask, &mask);
    return mask;
}

inline int processors() {
    const cpu_set_t mask = mask_of_this_thread();
    return CPU_COUNT(&mask);
}

inline bool run_on(int processor) {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<size_t>(processor), &one);
    return sched_setaffinity(0, sizeof one, &one) == 0;
}

} // namespace vantro::test

#endif
