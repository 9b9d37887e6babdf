// Requests to the player service.
#ifndef VANTRO_PLAYER_REQUESTS_H
#define VANTRO_PLAYER_REQUESTS_H

#include <sys/uio.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>

#include <vantro/protocol.h>

#include "player/handle.h"

namespace vantro::player {

// The value of a result word before an exchange. An answer without a result word therefore counts
// as a failure. So does one that ends within the word, since some of these bits then remain.
inline constexpr int32_t no_result = -1;

inline RequestHeader request_header(uint16_t command, uint32_t payload_length) {
    return {command, 0, payload_length, 0, 0};
}

// A part of a request. iovec has no const, since it serves requests and answers.
inline iovec part(const void *data, size_t length) {
    return {const_cast<void *>(data), length};
}

template <class Value>
iovec part(const Value &value) {
    return part(&value, sizeof value);
}

// A string in a request. If it is too long for its length word, it is also too long for a message,
// so the exchange fails.
struct Text {
    explicit Text(const char *text)
        : characters(part(text, std::strlen(text))),
          length(static_cast<uint32_t>(characters.iov_len)) {}

    iovec characters;
    uint32_t length;
};

// One exchange. Keeps errno, except that it sets ETIMEDOUT if the handle's time limit is exceeded.
// Records a failure. Returns the message client's result: 0 if an answer came; `answer_length` is
// then its length in bytes, including the result word: the length that the service states, or the
// received length if that is less. If the service holds the answer, `answer_length` is the stated
// length.
int putgetv(const VantroHandle *handle, std::initializer_list<iovec> request,
            std::initializer_list<iovec> reply, uint32_t &answer_length);

// putgetv() on a connection that no other thread uses: a connection that the handle does not have
// yet, or in a call that must not overlap others.
int putgetv_on(MsgClient *connection, const VantroHandle *handle,
               std::initializer_list<iovec> request, std::initializer_list<iovec> reply,
               uint32_t &answer_length);

// Fetches the answer that the service holds. Otherwise like putgetv().
int getv(const VantroHandle *handle, std::initializer_list<iovec> reply, uint32_t &answer_length);

// Whether putgetv() brought an answer; logged if not.
bool answered(int status);

// One exchange. @return whether the service carried out the request and `answer` is complete.
// Records and logs a failure.
bool carried_out(const VantroHandle *handle, const char *failure,
                 std::initializer_list<iovec> request, iovec answer = {});

enum class Outcome { granted, refused, unanswered };

// Opening and closing a player by its name, which differ only in their command. Like putgetv_on().
Outcome request_by_name(MsgClient *connection, const VantroHandle *handle, uint16_t command,
                        const char *name);

// The two kinds of request for commands. Each returns the service's result word, or -1 if the
// handle has no open player or the exchange failed, which is logged.
int32_t vantro_iomsg_noparam(VantroHandle *handle, uint16_t command);
int32_t vantro_iomsg_integer(VantroHandle *handle, uint16_t command, int32_t value);

} // namespace vantro::player

#endif
