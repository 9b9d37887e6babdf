#include "player/requests.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "player/failure.h"
#include "player/log.h"
#include "transport/client/client.h"

namespace vantro::player {

static_assert(sizeof(RequestHeader) == 16);
static_assert(offsetof(RequestHeader, command) == 0);
static_assert(offsetof(RequestHeader, payload_length) == 4);

namespace {

uint32_t length_of_answer(int status, const transport::AnswerLength &length) {
    return status == MSG_STATUS_QUEUED ? length.stated : std::min(length.stated, length.received);
}

// Held while an exchange uses the connection of a handle that reconnects. The analysis does not
// support locks that are taken conditionally.
class ConnectionUse {
  public:
    explicit ConnectionUse(const VantroHandle *handle) NO_THREAD_SAFETY_ANALYSIS
        : lock_(handle->reconnects ? &handle->connection_lock : nullptr) {
        if (lock_) {
            lock_->lock_shared();
        }
    }
    ~ConnectionUse() NO_THREAD_SAFETY_ANALYSIS {
        if (lock_) {
            lock_->unlock_shared();
        }
    }
    ConnectionUse(const ConnectionUse &) = delete;
    ConnectionUse &operator=(const ConnectionUse &) = delete;

  private:
    SharedMutex *lock_;
};

// Makes an exchange, keeps errno, and records a failure. @return the message client's result.
template <class Exchange>
int concluded(const VantroHandle *handle, Exchange make) {
    const int before = errno;
    const int status = make();
    errno = before;
    if (status != 0 && status != MSG_STATUS_QUEUED) {
        note_failed_exchange(handle, status);
    }
    return status;
}

} // namespace

int putgetv_on(MsgClient *connection, const VantroHandle *handle,
               std::initializer_list<iovec> request, std::initializer_list<iovec> reply,
               uint32_t &answer_length) {
    transport::AnswerLength length;
    const int status = concluded(handle, [&] {
        return transport::putgetv(connection, request.begin(), static_cast<int>(request.size()),
                                  reply.begin(), static_cast<int>(reply.size()), length, 0);
    });
    answer_length = length_of_answer(status, length);
    return status;
}

int putgetv(const VantroHandle *handle, std::initializer_list<iovec> request,
            std::initializer_list<iovec> reply, uint32_t &answer_length) {
    const ConnectionUse use(handle);
    return putgetv_on(handle->connection, handle, request, reply, answer_length);
}

int getv(const VantroHandle *handle, std::initializer_list<iovec> reply, uint32_t &answer_length) {
    const ConnectionUse use(handle);
    transport::AnswerLength length;
    const int status = concluded(handle, [&] {
        return transport::getv(handle->connection, 0, reply.begin(), static_cast<int>(reply.size()),
                               length, 0);
    });
    answer_length = length_of_answer(status, length);
    return status;
}

Outcome request_by_name(MsgClient *connection, const VantroHandle *handle, uint16_t command,
                        const char *name) {
    const auto length = static_cast<uint32_t>(std::strlen(name));
    const RequestHeader header = request_header(command, length + sizeof length);
    int32_t result = no_result;
    uint32_t answer_length = 0;
    if (!answered(putgetv_on(connection, handle, {part(header), part(length), part(name, length)},
                             {part(result)}, answer_length))) {
        return Outcome::unanswered;
    }
    if (result == 0) {
        return Outcome::granted;
    }
    note_result(result);
    return Outcome::refused;
}

bool answered(int status) {
    if (status == 0) {
        return true;
    }
    msglog(LOG_SEVERITY_WARNING, "msgclient_putgetv() failed: %s", std::strerror(status));
    return false;
}

bool carried_out(const VantroHandle *handle, const char *failure,
                 std::initializer_list<iovec> request, iovec answer) {
    int32_t result = no_result;
    uint32_t answer_length = 0;
    if (!answered(putgetv(handle, request, {part(result), answer}, answer_length))) {
        return false;
    }
    if (result == 0 && answer_length >= sizeof result + answer.iov_len) {
        return true;
    }
    note_result(result);
    msglog(LOG_SEVERITY_INFO, "%s", failure);
    return false;
}

int32_t vantro_iomsg_noparam(VantroHandle *handle, uint16_t command) {
    if (!require_player(handle)) {
        return -1;
    }
    const RequestHeader header = request_header(command, 0);
    int32_t result = no_result;
    uint32_t answer_length = 0;
    const int status = concluded(handle, [&] {
        const ConnectionUse use(handle);
        return msgclient_putget(handle->connection, &header, sizeof header, &result, sizeof result,
                                &answer_length, 0);
    });
    if (status != 0) {
        msglog(LOG_SEVERITY_WARNING, "msgclient_putget() failed: %s", std::strerror(status));
        return -1;
    }
    if (result != 0) {
        note_result(result);
    }
    return result;
}

int32_t vantro_iomsg_integer(VantroHandle *handle, uint16_t command, int32_t value) {
    if (!require_player(handle)) {
        return -1;
    }
    const RequestHeader header = request_header(command, sizeof value);
    int32_t result = no_result;
    uint32_t answer_length = 0;
    if (!answered(putgetv(handle, {part(header), part(value)}, {part(result)}, answer_length))) {
        return -1;
    }
    if (result != 0) {
        note_result(result);
    }
    return result;
}

} // namespace vantro::player
