// What the library says while it is called. It reports only that a call failed; why, it writes to
// the log: a warning means that the service could not be reached, a line of lesser weight that the
// service answered and refused.
#ifndef VANTRO_TOOLS_VANTROCTL_SERVICE_LIBRARY_LOG_H
#define VANTRO_TOOLS_VANTROCTL_SERVICE_LIBRARY_LOG_H

namespace vantro::ctl {

// What was logged in this thread since forget_heard().
struct Heard {
    bool anything = false;
    bool unreachable = false;
    char why[256] = {}; // The first warning, without the names in front.
};

// Has the log come here, for the rest of the run. @param aloud also to standard error.
void listen_to_library(bool aloud);

void forget_heard();
const Heard &heard();

} // namespace vantro::ctl

#endif
