// The verbs for when something does not work: what is there, and whom the service takes one for.
#ifndef VANTRO_TOOLS_VANTROCTL_VERBS_DOCTOR_H
#define VANTRO_TOOLS_VANTROCTL_VERBS_DOCTOR_H

#include "tools/vantroctl/failure.h"
#include "tools/vantroctl/service/client.h"

namespace vantro::ctl {

// Looks at all that a player needs in order to play, and prints what it finds and how to mend it.
// @return done where all is well, else what the first thing that is wrong ends a run with.
Outcome run_doctor(const ClientOptions &options, bool json);

// Prints the user, the groups and the capabilities that the service sees. @throws Failure.
void run_whoami(const ClientOptions &options, bool json);

} // namespace vantro::ctl

#endif
