#ifndef VANTRO_TOOLS_VANTROCTL_SERVICE_LIBRARY_LOG_H
#define VANTRO_TOOLS_VANTROCTL_SERVICE_LIBRARY_LOG_H

namespace vantro::ctl {

// Receives the library's log for the rest of the run: the tool itself reports failed calls.
// @param aloud whether to print the log on standard error.
void listen_to_library(bool aloud);

} // namespace vantro::ctl

#endif
