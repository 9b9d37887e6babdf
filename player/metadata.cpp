// Queries about one node: its metadata record, and the values of keys that the caller names.
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <vantro/platform/limits.h>
#include <vantro/player.h>

#include "player/answer.h"
#include "player/failure.h"
#include "player/log.h"
#include "player/requests.h"
#include "records/packed_bytes.h"

namespace vantro::player {
namespace {

// The keys in the form of the request.
struct KeyBlock {
    Block bytes;
    uint32_t size = 0;
    uint32_t count = 0;
};

// Packs the keys. @return false if there is no memory, or more keys than fit in a message.
bool pack_keys(const char *const *keyv, KeyBlock &keys) {
    const KeepErrno keep;
    uint64_t size = 0;
    for (; keyv[keys.count]; keys.count++) {
        size += sizeof(uint32_t) + std::strlen(keyv[keys.count]);
        if (size > IPC_MESSAGE_MAX) {
            return false;
        }
    }
    keys.size = static_cast<uint32_t>(size);
    // One byte more, so that malloc() returns a block also if there are no keys.
    keys.bytes.reset(static_cast<unsigned char *>(std::malloc(keys.size + 1)));
    if (!keys.bytes) {
        return false;
    }
    records::PackedWriter writer(keys.bytes.get());
    for (uint32_t i = 0; i < keys.count; i++) {
        writer.put_string(keyv[i]);
    }
    return true;
}

// The values of an answer, before the caller gets them.
class Values {
  public:
    explicit Values(size_t count)
        : count_(count), values_(static_cast<char **>(std::calloc(count + 1, sizeof(char *)))) {}
    ~Values() {
        for (size_t i = 0; values_ && i < count_; i++) {
            std::free(values_[i]);
        }
        std::free(values_);
    }
    Values(const Values &) = delete;
    Values &operator=(const Values &) = delete;

    // An answer may end before the last value. The keys after its end have no value.
    records::Unpacked unpack(records::PackedReader reader) {
        if (!values_) {
            return records::Unpacked::no_memory;
        }
        for (size_t i = 0; i < count_ && !reader.at_end(); i++) {
            if (!reader.get_string(values_[i])) {
                return reader.short_of_memory() ? records::Unpacked::no_memory
                                                : records::Unpacked::malformed;
            }
        }
        return records::Unpacked::done;
    }

    void hand_over(char **valuev) {
        for (size_t i = 0; i < count_; i++) {
            valuev[i] = std::exchange(values_[i], nullptr);
        }
    }

  private:
    size_t count_;
    char **values_;
};

constexpr char extended_failure[] = "vantro_get_extended_metadata() failed";

int deliver(const Answer &answer, size_t count, char **valuev) {
    if (!answer.granted(extended_failure)) {
        return -1;
    }
    const KeepErrno keep;
    Values values(count);
    switch (values.unpack(records::PackedReader(answer.bytes(), answer.byte_count()))) {
    case records::Unpacked::done:
        values.hand_over(valuev);
        return 0;
    case records::Unpacked::no_memory:
        note_failure(VANTRO_FAILURE_NO_MEMORY, ENOMEM);
        msglog(LOG_SEVERITY_INFO, "Cannot allocate memory");
        return -1;
    default:
        note_failure(VANTRO_FAILURE_MALFORMED, EPROTO);
        msglog(LOG_SEVERITY_INFO, "%s", extended_failure);
        return -1;
    }
}

} // namespace
} // namespace vantro::player

using namespace vantro::player;
using vantro::MutexLock;

int vantro_get_metadata(VantroHandle *handle, int32_t ms_id, const char *node_id,
                        Metadata **metadata) {
    if (!node_id || !*node_id) {
        note_failure(VANTRO_FAILURE_INVALID, EINVAL);
        return -1;
    }
    if (!require_player(handle)) {
        return -1;
    }
    const Text id(node_id);
    const RequestHeader header = request_header(VANTRO_COMMAND_GET_METADATA, 8 + id.length);
    unsigned char area[VANTRO_REPLY_AREA];
    Answer answer(Counted::no, area, sizeof area);
    MutexLock lock(handle->overflow_lock);
    const int status =
        answer.ask(handle, {part(header), part(ms_id), part(id.length), id.characters});
    lock.unlock();
    if (!answered(status) || !answer.granted("vantro_get_metadata() failed")) {
        return -1;
    }
    if (answer.byte_count() == 0) {
        *metadata = nullptr;
        return 0;
    }
    return unpack_answer(answer, 1, metadata);
}

int vantro_get_extended_metadata(VantroHandle *handle, int32_t ms_id, const char *node_id,
                                 const char *const *keyv, char **valuev) {
    if (!node_id || !*node_id) {
        note_failure(VANTRO_FAILURE_INVALID, EINVAL);
        msglog(LOG_SEVERITY_INFO, "Invalid media node id");
        return -1;
    }
    if (!keyv || !valuev) {
        note_failure(VANTRO_FAILURE_INVALID, EINVAL);
        msglog(LOG_SEVERITY_INFO, "Invalid keyv or valuev");
        return -1;
    }
    if (!require_connection(handle)) {
        return -1;
    }
    KeyBlock keys;
    if (!pack_keys(keyv, keys)) {
        note_failure(VANTRO_FAILURE_NO_MEMORY, ENOMEM);
        msglog(LOG_SEVERITY_INFO, "No memory");
        errno = ENOMEM;
        return -1;
    }
    LongAnswer answer(Counted::no);
    if (!answer.make_area()) {
        return -1;
    }
    const Text id(node_id);
    const RequestHeader header =
        request_header(VANTRO_COMMAND_GET_EXTENDED_METADATA, 12 + id.length + keys.size);
    MutexLock lock(handle->overflow_lock);
    const int status =
        answer.ask(handle, {part(header), part(ms_id), part(id.length), id.characters,
                            part(keys.count), part(keys.bytes.get(), keys.size)});
    keys.bytes.reset();
    const LongAnswer::Completion completion = answer.complete(handle, status);
    lock.unlock();
    if (!LongAnswer::is_complete(completion, status)) {
        return -1;
    }
    return deliver(answer, keys.count, valuev);
}
