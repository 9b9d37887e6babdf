// The verbs for finding out why something does not work.
#ifndef VANTRO_TOOLS_VANTROCTL_VERBS_DOCTOR_H
#define VANTRO_TOOLS_VANTROCTL_VERBS_DOCTOR_H

#include "tools/vantroctl/failure.h"
#include "tools/vantroctl/service/client.h"

namespace vantro::ctl {

// Checks everything that a player needs in order to play, and prints what it finds and how to mend
// it. @return done if all is well, else the outcome of the first thing that is not.
Outcome run_doctor(const ClientOptions &options, bool json);

// Prints the user, the groups and the capabilities that the service sees. @throws Failure.
void run_whoami(const ClientOptions &options, bool json);

} // namespace vantro::ctl

#endif
