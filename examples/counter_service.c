/*
 * A service in sixty lines: each open has its own sum. A request is a 32-bit number to add; the
 * answer is the sum. A number that cannot be added is refused, and changes nothing.
 */
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <vantro/messaging.h>

enum { LARGEST_REQUEST = 1024, OPENS_MAX = 1024 };

static int32_t sums[OPENS_MAX]; /* by the index of the open; under the service's lock */

static int32_t open_counter(MsgOsb *open, MsgContext *context, MsgService *service) {
    (void)context;
    if (open->index >= OPENS_MAX) {
        return EAGAIN; /* the client's msgclient_open() fails with it */
    }
    pthread_mutex_lock(&service->lock);
    sums[open->index] = 0; /* the index may have been another client's */
    pthread_mutex_unlock(&service->lock);
    return 0;
}

static int32_t add(MsgOsb *open, MsgContext *context, MsgService *service) {
    const int receive_id = context->receive_id;
    int32_t number = 0;
    int32_t sum = 0;
    int32_t status = 0;
    if (context->header->send_length != sizeof number) {
        status = EINVAL;
    } else {
        memcpy(&number, context->payload, sizeof number); /* not aligned, and not to be trusted */
        pthread_mutex_lock(&service->lock);
        if (__builtin_add_overflow(sums[open->index], number, &sum)) {
            status = ERANGE;
        } else {
            sums[open->index] = sum;
        }
        pthread_mutex_unlock(&service->lock);
    }
    /* Answers once, as the last step: the open record may be freed afterwards. */
    if (callout_reply(open, context, status, &sum, status == 0 ? (int32_t)sizeof sum : 0) ==
        ENOMEM) {
        ipc_error(receive_id, ENOMEM);
    }
    return 0;
}

int main(void) {
    MsgServer *server = msgserver_create(LARGEST_REQUEST, 1, MSGSERVER_FLAG_PATH);
    if (!server || msgserver_add(server, "counter", NULL, "perms=660", LARGEST_REQUEST, add,
                                 open_counter, NULL) < 0) {
        perror("counter_service");
        return EXIT_FAILURE;
    }
    puts("counter_service: ready");
    fflush(stdout);
    return msgserver_thread_loop(server);
}
