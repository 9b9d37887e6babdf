/*
 * A service that answers later, from another thread, and limits what each user may have. A request
 * is a 32-bit number of milliseconds, at most MS_MAX; its answer, without data, comes after that
 * time. Requests with reply and puts are both answered.
 */
#define _POSIX_C_SOURCE 200809L

#include <errno.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <vantro/messaging.h>

enum {
    MS_MAX = 60000,
    TIMERS_MAX = 256,
    TIMERS_OF_OPEN_MAX = 16,
    OPENS_MAX = 1024,
    OPENS_OF_USER_MAX = 4
};

struct Timer {
    struct timespec due; /* on the monotonic clock */
    MsgOsb *open;
    MsgContext context;
    TransportHeader header; /* `context.header` still points to the one that was received */
};

static struct Timer timers[TIMERS_MAX]; /* the first timer_count of them, in no order */
static int timer_count;
static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER; /* of the timers */
static pthread_cond_t changed;

/* By the index of the open; under the service's lock. */
static struct {
    int accepted;
    uint32_t user;
} opens[OPENS_MAX];

static int32_t open_timers(MsgOsb *open, MsgContext *context, MsgService *service) {
    struct ipc_credentials client;
    int count = 0;
    int i;
    if (open->index >= OPENS_MAX) {
        return EAGAIN;
    }
    /* The kernel's word for who the client is, not the client's own. */
    if (connect_client_info(context->info.conn_id, &client, 0) != 0) {
        return EACCES;
    }
    pthread_mutex_lock(&service->lock);
    for (i = 0; i < OPENS_MAX; i++) {
        count += opens[i].accepted && opens[i].user == client.uid;
    }
    if (count < OPENS_OF_USER_MAX) {
        opens[open->index].accepted = 1;
        opens[open->index].user = client.uid;
    }
    pthread_mutex_unlock(&service->lock);
    return count < OPENS_OF_USER_MAX ? 0 : EAGAIN;
}

/* Called for refused opens too, and possibly a second time: only an accepted one is given back. */
static int32_t close_timers(MsgOsb *open, MsgContext *context, MsgService *service) {
    (void)context; /* NULL if the client vanished */
    if (open->index < OPENS_MAX) {
        pthread_mutex_lock(&service->lock);
        opens[open->index].accepted = 0;
        pthread_mutex_unlock(&service->lock);
    }
    return 0;
}

/* Answers once. The open record may be freed afterwards. A client of a put does not wait. */
static void answer(MsgOsb *open, MsgContext *context, int32_t status) {
    const int receive_id = context->receive_id;
    const int client_waits = context->header->kind == MSG_KIND_PUTGET;
    if (callout_reply(open, context, status, NULL, 0) == ENOMEM && client_waits) {
        ipc_error(receive_id, ENOMEM);
    }
}

static struct timespec later(uint32_t ms) {
    struct timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    time.tv_sec += ms / 1000;
    time.tv_nsec += (long)(ms % 1000) * 1000000;
    if (time.tv_nsec >= 1000000000) {
        time.tv_sec++;
        time.tv_nsec -= 1000000000;
    }
    return time;
}

static int is_before(const struct timespec *left, const struct timespec *right) {
    return left->tv_sec != right->tv_sec ? left->tv_sec < right->tv_sec
                                         : left->tv_nsec < right->tv_nsec;
}

static int32_t start_timer(MsgOsb *open, MsgContext *context, MsgService *service) {
    uint32_t ms = 0;
    int32_t status = 0;
    int count = 0;
    int i;
    (void)service;
    if (context->header->send_length != sizeof ms) {
        status = EINVAL;
    } else {
        memcpy(&ms, context->payload, sizeof ms); /* not aligned, and not to be trusted */
        status = ms > MS_MAX ? ERANGE : 0;
    }
    if (status == 0) {
        pthread_mutex_lock(&lock);
        for (i = 0; i < timer_count; i++) {
            count += timers[i].open == open;
        }
        if (timer_count < TIMERS_MAX && count < TIMERS_OF_OPEN_MAX) {
            /* The thread's context and header are used again for its next request. */
            const struct Timer timer = {later(ms), open, *context, *context->header};
            timers[timer_count++] = timer;
            pthread_cond_signal(&changed);
        } else {
            status = EAGAIN;
        }
        pthread_mutex_unlock(&lock);
    }
    if (status != 0) {
        answer(open, context, status);
    }
    return 0;
}

/* The thread that answers. */
static void *wait_for_timers(void *unused) {
    pthread_mutex_lock(&lock);
    for (;;) {
        struct Timer timer;
        struct timespec now = later(0);
        int next = 0;
        int i;
        for (i = 1; i < timer_count; i++) {
            next = is_before(&timers[i].due, &timers[next].due) ? i : next;
        }
        if (timer_count == 0) {
            pthread_cond_wait(&changed, &lock);
            continue;
        }
        if (is_before(&now, &timers[next].due)) {
            const struct timespec due = timers[next].due;
            pthread_cond_timedwait(&changed, &lock, &due);
            continue;
        }
        timer = timers[next];
        timers[next] = timers[--timer_count];
        pthread_mutex_unlock(&lock);
        /* A client that is gone needs no special care: the answer then only drops the reference. */
        timer.context.header = &timer.header;
        answer(timer.open, &timer.context, 0);
        pthread_mutex_lock(&lock);
    }
    return unused;
}

int main(void) {
    pthread_t thread;
    pthread_condattr_t monotonic;
    MsgServer *server;
    pthread_condattr_init(&monotonic);
    pthread_condattr_setclock(&monotonic, CLOCK_MONOTONIC);
    pthread_cond_init(&changed, &monotonic);
    server = msgserver_create((int32_t)sizeof(uint32_t), TIMERS_OF_OPEN_MAX, MSGSERVER_FLAG_PATH);
    if (!server || msgserver_add(server, "timer", NULL, "perms=666", (int32_t)sizeof(uint32_t),
                                 start_timer, open_timers, close_timers) < 0) {
        perror("timer_service");
        return EXIT_FAILURE;
    }
    errno = pthread_create(&thread, NULL, wait_for_timers, NULL);
    if (errno != 0) {
        perror("timer_service");
        return EXIT_FAILURE;
    }
    puts("timer_service: ready");
    fflush(stdout);
    return msgserver_thread_loop(server);
}
