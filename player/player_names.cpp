// The names of a service's players.
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <vantro/extras.h>

#include "player/answer.h"
#include "player/failure.h"
#include "player/log.h"
#include "player/requests.h"

namespace vantro::player {
namespace {

// Whether the bytes begin with `count` strings without a NUL. `characters` receives their total
// number of bytes.
bool check_names(const unsigned char *bytes, size_t size, int32_t count, size_t &characters) {
    characters = 0;
    for (int32_t i = 0; i < count; ++i) {
        uint32_t length = 0;
        if (size < sizeof length) {
            return false;
        }
        std::memcpy(&length, bytes, sizeof length);
        bytes += sizeof length;
        size -= sizeof length;
        if (length > size || std::memchr(bytes, 0, length)) {
            return false;
        }
        bytes += length;
        size -= length;
        characters += length;
    }
    return count >= 0;
}

// One block: the pointers, a null pointer, and the names, each with its NUL. Null if there is no
// memory.
char **copy_names(const unsigned char *bytes, int32_t count, size_t characters) {
    const KeepErrno keep;
    const auto number = static_cast<size_t>(count);
    const size_t table = (number + 1) * sizeof(char *);
    auto **const names = static_cast<char **>(std::malloc(table + characters + number));
    if (!names) {
        return nullptr;
    }
    char *next = reinterpret_cast<char *>(names) + table;
    for (size_t i = 0; i < number; ++i) {
        uint32_t length = 0;
        std::memcpy(&length, bytes, sizeof length);
        names[i] = next;
        std::memcpy(next, bytes + sizeof length, length);
        next[length] = 0;
        next += length + 1;
        bytes += sizeof length + length;
    }
    names[number] = nullptr;
    return names;
}

} // namespace
} // namespace vantro::player

using namespace vantro::player;
using vantro::MutexLock;

int vantro_list_players(VantroHandle *handle, char ***names) {
    if (!require_connection(handle)) {
        return -1;
    }
    LongAnswer answer(Counted::yes);
    if (!answer.make_area()) {
        return -1;
    }
    const RequestHeader header = request_header(VANTRO_COMMAND_LIST_PLAYERS, 0);
    MutexLock lock(handle->overflow_lock);
    const int status = answer.ask(handle, {part(header)});
    const LongAnswer::Completion completion = answer.complete(handle, status);
    lock.unlock();
    if (!LongAnswer::is_complete(completion, status) ||
        !answer.granted("vantro_list_players() failed")) {
        return -1;
    }
    size_t characters = 0;
    if (!check_names(answer.bytes(), answer.byte_count(), answer.count(), characters)) {
        note_failure(VANTRO_FAILURE_MALFORMED, EPROTO);
        return -1;
    }
    char **const copied = copy_names(answer.bytes(), answer.count(), characters);
    if (!copied) {
        note_failure(VANTRO_FAILURE_NO_MEMORY, ENOMEM);
        msglog(LOG_SEVERITY_INFO, "Cannot allocate memory");
        return -1;
    }
    *names = copied;
    return answer.count();
}
