// An operator new that fails when a test says so. The including program links failing_new.cpp.
#ifndef VANTRO_TESTS_SUPPORT_FAILING_NEW_H
#define VANTRO_TESTS_SUPPORT_FAILING_NEW_H

namespace vantro::test {

// Uses of operator new by this thread before the one that throws; below 0 none does.
extern thread_local int news_left;

} // namespace vantro::test

#endif
