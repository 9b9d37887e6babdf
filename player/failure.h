// Why a call failed, for vantro_last_failure().
#ifndef VANTRO_PLAYER_FAILURE_H
#define VANTRO_PLAYER_FAILURE_H

#include <cstdint>

#include <vantro/extras.h>

#include "player/handle.h"

namespace vantro::player {

// Notes why the calling thread's present call fails. Keeps errno.
void note_failure(int32_t reason, int32_t number);

// Notes the message client's result of an exchange that failed. That its time was over is in errno
// as well, if the handle has a limit; else errno is kept.
void note_failed_exchange(const VantroHandle *handle, int status);

// Notes a result word other than 0: the service refused. -1 is that of an answer too short to have
// one.
void note_result(int32_t result);

} // namespace vantro::player

#endif
