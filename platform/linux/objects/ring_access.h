#ifndef VANTRO_PLATFORM_LINUX_OBJECTS_RING_ACCESS_H
#define VANTRO_PLATFORM_LINUX_OBJECTS_RING_ACCESS_H

#include <vantro/platform/objects.h>

namespace vantro::platform {

// Makes a ring readable by those readers, and by its publisher. Nobody may write it.
//
// Whoever may read the file, its publisher stays its owner: another owner could shorten it, and the
// publisher, which has it mapped, would end with SIGBUS. So an owner and a group that are not the
// publisher's get their bits from an access control list. @return whether that succeeded; errno
// says why not.
bool grant_reading(int ring_file, const object_readers &readers);

} // namespace vantro::platform

#endif
