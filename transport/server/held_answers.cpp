// Held answers: the queue of an open record, and the fetches that empty it.
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <vantro/messaging.h>

#include "transport/headered_parts.h"
#include "transport/server/held_answers.h"
#include "transport/server/held_by_user.h"
#include "transport/server/server.h"
#include "transport/wire.h"

namespace vantro::transport {
namespace {

// Precedes a held answer in memory: the user for whom it counts, and the number of counted bytes.
struct alignas(std::max_align_t) Counted {
    Holder holder;
    int64_t bytes;
};
static_assert(alignof(MsgPending) <= alignof(Counted));

Counted &counted(MsgPending *pending) {
    return *(reinterpret_cast<Counted *>(pending) - 1);
}

uint8_t *answer_bytes(MsgPending *pending) {
    return reinterpret_cast<uint8_t *>(pending + 1);
}

void give_back(MsgPending *pending) {
    give_held_bytes(counted(pending).holder, std::exchange(counted(pending).bytes, 0));
}

// Frees an answer that is in no queue.
void discard(MsgPending *pending) {
    give_back(pending);
    std::free(&counted(pending));
}

// Counts an answer for the user whose open will hold it.
Taken take(const MsgOsb &open, MsgPending *wanted) REQUIRES(server_lock) {
    const Holder holder = holder_of(open);
    const Taken taken = take_held_bytes(holder, wanted->length);
    counted(wanted) = {holder, taken == Taken::yes ? wanted->length : 0};
    return taken;
}

// Whether a record may hold another answer. It may hold its first one, whatever its length, and as
// many as its client was granted. Beyond that it may hold only a few, so that a client that never
// fetches costs little.
bool may_hold(const MsgOsb &open, int32_t length) REQUIRES(server_lock) {
    if (open.queued == 0 || open.queued < open.queue_limit) {
        return true;
    }
    if (open.queued > held_answers_max) {
        return false;
    }
    int64_t further = length;
    for (const MsgPending *held = open.pending; held->next; held = held->next) {
        further += held->length;
    }
    return further <= held_bytes_max;
}

void link(MsgOsb *open, MsgPending *pending) REQUIRES(server_lock) {
    pending->next = open->pending;
    open->pending = pending;
    open->queued++;
}

MsgPending *unlink(MsgOsb *open, MsgPending **place) REQUIRES(server_lock) {
    MsgPending *pending = *place;
    *place = pending->next;
    open->queued--;
    return pending;
}

MsgPending *gather(int32_t status, uint32_t tag, const iovec *parts, int32_t count) {
    const uint64_t length = sum_parts(parts, count);
    if (length > INT32_MAX) {
        return nullptr;
    }
    auto *block = static_cast<Counted *>(
        std::malloc(sizeof(Counted) + sizeof(MsgPending) + static_cast<size_t>(length)));
    if (!block) {
        return nullptr;
    }
    *block = {};
    auto *pending = reinterpret_cast<MsgPending *>(block + 1);
    pending->tag = tag;
    pending->length = static_cast<int32_t>(length);
    pending->status = status;
    uint8_t *to = answer_bytes(pending);
    for (int32_t i = 0; i < count; i++) {
        if (parts[i].iov_len == 0) {
            continue;
        }
        std::memcpy(to, parts[i].iov_base, parts[i].iov_len);
        to += parts[i].iov_len;
    }
    return pending;
}

// The link to the newest answer of that tag, or to the null at the end.
MsgPending **find(MsgOsb *open, uint32_t tag) REQUIRES(server_lock) {
    MsgPending **place = &open->pending;
    while (*place && (*place)->tag != tag) {
        place = &(*place)->next;
    }
    return place;
}

// The link to the oldest answer of that tag, or null.
MsgPending **find_oldest(MsgOsb *open, uint32_t tag) REQUIRES(server_lock) {
    MsgPending **oldest = nullptr;
    for (MsgPending **place = &open->pending; *place; place = &(*place)->next) {
        if ((*place)->tag == tag) {
            oldest = place;
        }
    }
    return oldest;
}

// Removes the oldest answers of the same tag until the new one may be held. A client fetches an
// answer of a tag before it requests the next one, so it has given up the older ones.
// @param dropped receives the removed ones, for free_list() without the lock.
// @return whether the answer may be held; if so, it is counted.
Taken make_room(MsgOsb *open, MsgPending *wanted, MsgPending **dropped) REQUIRES(server_lock) {
    Taken refused = Taken::no;
    for (;;) {
        const Taken taken = may_hold(*open, wanted->length) ? take(*open, wanted) : Taken::no;
        if (taken == Taken::yes) {
            return taken;
        }
        refused = taken == Taken::no ? refused : taken;
        MsgPending **oldest = find_oldest(open, wanted->tag);
        if (!oldest) {
            return refused;
        }
        MsgPending *removed = unlink(open, oldest);
        give_back(removed);
        removed->next = *dropped;
        *dropped = removed;
    }
}

void free_list(MsgPending *list) {
    while (list) {
        MsgPending *next = list->next;
        discard(list);
        list = next;
    }
}

} // namespace

int32_t put_queue(MsgOsb *open, int32_t status, uint32_t tag, const iovec *parts, int32_t count) {
    MsgPending *pending = gather(status, tag, parts, count);
    if (!pending) {
        return ENOMEM;
    }
    Taken taken = Taken::no;
    {
        const ServerLock lock(open->server);
        if (may_hold(*open, pending->length) && (taken = take(*open, pending)) == Taken::yes) {
            link(open, pending);
            return 0;
        }
    }
    if (taken == Taken::no_for_the_first_time) {
        log_held_limit(counted(pending).holder);
    }
    discard(pending);
    return ENOMEM;
}

int32_t hold_and_announce(MsgOsb *open, int32_t receive_id, int32_t status, TransportHeader *header,
                          const iovec *parts, int32_t count) {
    MsgPending *pending = gather(status, header->tag, parts, count);
    if (!pending) {
        return ENOMEM;
    }
    // The lock is held from here to the announcement: the fetch of a later request must find this
    // answer either held before its own, or not at all.
    ServerLock lock(open->server);
    if (!ipc_waiting(receive_id)) {
        lock.release();
        discard(pending);
        ipc_error(receive_id, ECANCELED); // ends the exchange on this side; no client receives it
        errno = ESRCH;
        return -1;
    }
    MsgPending *dropped = nullptr;
    const Taken taken = make_room(open, pending, &dropped);
    int32_t result = ENOMEM;
    int error = ENOMEM;
    if (taken == Taken::yes) {
        link(open, pending);
        const iovec announcement = {header, header_bytes};
        result = answer(receive_id, MSG_STATUS_QUEUED, &announcement, 1);
        error = errno;
        if (result != 0) {
            // The client does not know this answer, so it would never fetch it. It is still the
            // newest.
            unlink(open, &open->pending);
        }
    }
    lock.release();
    if (taken == Taken::no_for_the_first_time) {
        log_held_limit(counted(pending).holder);
    }
    if (result != 0) {
        discard(pending);
    }
    free_list(dropped);
    errno = error;
    return result;
}

void fetch_answer(MsgOsb *open, const MsgContext &context) {
    const uint32_t tag = context.header->tag;
    const auto capacity = static_cast<int32_t>(context.header->reply_length);
    TransportHeader header = {};
    ServerLock lock(open->server);
    if (!ipc_waiting(context.receive_id)) {
        // The client has given up this fetch and may have sent another request, so the answer that
        // is held now may belong to that request.
        lock.release();
        ipc_error(context.receive_id, ECANCELED);
        return;
    }
    MsgPending **place = find(open, tag);
    MsgPending *pending = *place;
    if (!pending) {
        lock.release();
        ipc_error(context.receive_id, ENOMSG);
        return;
    }
    header.reply_length = static_cast<uint32_t>(pending->length);
    if (pending->length > capacity) {
        const iovec announcement = {&header, header_bytes};
        answer(context.receive_id, MSG_STATUS_QUEUED, &announcement, 1);
        return;
    }
    unlink(open, place);
    lock.release();

    const iovec reply[] = {{&header, header_bytes},
                           {answer_bytes(pending), static_cast<size_t>(pending->length)}};
    if (ipc_replyv(context.receive_id, pending->status, reply, 2) == 0) {
        discard(pending);
        return;
    }
    const int error = errno;
    if (error == ESRCH || error == EINVAL || error == EMSGSIZE) {
        // The client is gone, or this answer can never be sent.
        discard(pending);
    } else {
        // Memory or descriptors are short for now. The answer is held again before the client gets
        // the error, since the client may fetch again at once.
        lock.take();
        link(open, pending);
        lock.release();
    }
    refuse(context.receive_id, error);
}

void free_open(MsgOsb *open) {
    free_list(open->pending);
    open->pending = nullptr;
    pthread_mutex_destroy(&open->lock);
    _array_del(open->service->opens, open->index);
}

} // namespace vantro::transport
