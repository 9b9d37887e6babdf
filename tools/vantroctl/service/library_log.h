#ifndef VANTRO_TOOLS_VANTROCTL_SERVICE_LIBRARY_LOG_H
#define VANTRO_TOOLS_VANTROCTL_SERVICE_LIBRARY_LOG_H

namespace vantro::ctl {

// Takes the library's log for the rest of the run: the tool itself says why a call failed.
// @param aloud whether it goes to standard error.
void listen_to_library(bool aloud);

} // namespace vantro::ctl

#endif
