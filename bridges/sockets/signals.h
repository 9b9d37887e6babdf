#ifndef VANTRO_BRIDGES_SOCKETS_SIGNALS_H
#define VANTRO_BRIDGES_SOCKETS_SIGNALS_H

#include "bridges/sockets/descriptor.h"

namespace vantro::sockets {

// Readable once the program is to end: SIGTERM and SIGINT are blocked from now on, and arrive here.
Descriptor ending_signals();

} // namespace vantro::sockets

#endif
