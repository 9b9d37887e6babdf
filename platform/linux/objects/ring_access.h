#ifndef VANTRO_PLATFORM_LINUX_OBJECTS_RING_ACCESS_H
#define VANTRO_PLATFORM_LINUX_OBJECTS_RING_ACCESS_H

#include <vantro/platform/objects.h>

namespace vantro::platform {

// Makes a ring readable by those readers, and by its publisher. No user may write it.
//
// The publisher always stays the owner of the file: another owner could shorten it, and the
// publisher, which has it mapped, would end with SIGBUS. So an access control list gives the bits
// to another user and group. @return false with errno on failure.
bool grant_reading(int ring_file, const object_readers &readers);

} // namespace vantro::platform

#endif
