// The reason of a failed call, for vantro_last_failure().
#ifndef VANTRO_PLAYER_FAILURE_H
#define VANTRO_PLAYER_FAILURE_H

#include <cstdint>

#include <vantro/extras.h>

#include "player/handle.h"

namespace vantro::player {

// Records the reason for which the calling thread's present call fails. Keeps errno.
void note_failure(int32_t reason, int32_t number);

// Records the message client's result of a failed exchange. If the handle's time limit was
// exceeded, errno says so too; otherwise keeps errno.
void note_failed_exchange(const VantroHandle *handle, int status);

// Records a result word other than 0: the service refused. -1 stands for an answer that is too
// short to have one.
void note_result(int32_t result);

} // namespace vantro::player

#endif
