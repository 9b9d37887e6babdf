// Why a call of the library failed, as far as the library says it: the call reports only that it
// failed, the reason is a line of the log. A warning means that the exchange with the service
// failed, a line of lesser weight that the service answered and refused.
#ifndef VANTRO_TOOLS_VANTROCTL_SERVICE_LIBRARY_LOG_H
#define VANTRO_TOOLS_VANTROCTL_SERVICE_LIBRARY_LOG_H

namespace vantro::ctl {

// What was logged in this thread since forget_logged_failure().
struct LoggedFailure {
    bool anything = false;
    bool in_exchange = false; // The service was not reached, or its answer did not arrive whole.
    char why[256] = {};       // Of the exchange, without the names in front.
};

// Sends the log here, for the rest of the run. @param aloud also to standard error.
void listen_to_library(bool aloud);

void forget_logged_failure();
const LoggedFailure &logged_failure();

} // namespace vantro::ctl

#endif
