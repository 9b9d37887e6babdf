#ifndef VANTRO_BRIDGES_SOCKETS_SIGNALS_H
#define VANTRO_BRIDGES_SOCKETS_SIGNALS_H

#include "bridges/sockets/descriptor.h"

namespace vantro::sockets {

// A descriptor that is readable after SIGTERM or SIGINT. Both signals are blocked from now on.
Descriptor ending_signals();

} // namespace vantro::sockets

#endif
