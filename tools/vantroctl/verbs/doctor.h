// The verbs for finding out why something does not work.
#ifndef VANTRO_TOOLS_VANTROCTL_VERBS_DOCTOR_H
#define VANTRO_TOOLS_VANTROCTL_VERBS_DOCTOR_H

#include "tools/vantroctl/failure.h"
#include "tools/vantroctl/service/client.h"

namespace vantro::ctl {

// Checks everything that a player needs in order to play, and prints each finding and its remedy.
// @return done if no finding is bad, else the outcome of the first bad one.
Outcome run_doctor(const ClientOptions &options, bool json);

// Prints this program's user, groups and capabilities as the service sees them. @throws Failure.
void run_whoami(const ClientOptions &options, bool json);

} // namespace vantro::ctl

#endif
