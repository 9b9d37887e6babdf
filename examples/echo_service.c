/*
 * A service that sends back what it receives.
 *
 *     echo_service [--names] [--threads N]
 *
 * It is reached through its path; with --names through its global name, which any user may open.
 * SIGTERM and SIGINT end it.
 */
#define _POSIX_C_SOURCE 200809L

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <vantro/messaging.h>

enum {
    LARGEST_REQUEST = 1024 * 1024,
    USUAL_REQUEST = 4096,
    HELD_ANSWERS = 16,
    THREADS_MAX = 64,
    PULSE_PRIORITY = 10,
    EXIT_USAGE = 2
};

static MsgServer *server; /* lives as long as the process */

static int32_t echo(MsgOsb *open, MsgContext *context, MsgService *service) {
    const int receive_id = context->receive_id;
    const int32_t length = (int32_t)context->header->send_length;
    (void)service;
    /* The open record may be gone once the answer was sent. */
    if (callout_reply(open, context, 0, context->payload, length) == ENOMEM) {
        ipc_error(receive_id, ENOMEM);
    }
    return 0;
}

static void *serve(void *unused) {
    (void)unused;
    msgserver_thread_loop(server);
    return NULL;
}

/* A waiting thread looks at `stop` only at its next message or pulse, so each is sent a pulse. */
static void stop_threads(const pthread_t *threads, int count) {
    const int connection = connect_attach(0, 0, server->channel, 0, 0);
    int i;
    __atomic_store_n(&server->stop, 1, __ATOMIC_RELEASE);
    for (i = 0; i < count; i++) {
        pulse_send(connection, PULSE_PRIORITY, 0, 0);
    }
    for (i = 0; i < count; i++) {
        pthread_join(threads[i], NULL);
    }
    connect_detach(connection);
}

static int usage(const char *problem, const char *what) {
    fprintf(stderr,
            "echo_service: %s%s\n"
            "usage: echo_service [--names] [--threads N]\n"
            "  --names      serve under a global name instead of a path\n"
            "  --threads N  serve with N threads, 1 to %d (default 2)\n",
            problem, what, THREADS_MAX);
    return EXIT_USAGE;
}

static int fail(const char *step) {
    fprintf(stderr, "echo_service: %s: %s\n", step, strerror(errno));
    return EXIT_FAILURE;
}

int main(int argc, char **argv) {
    pthread_t threads[THREADS_MAX];
    int flags = MSGSERVER_FLAG_PATH;
    int thread_count = 2;
    int started = 0;
    int signal_number = 0;
    sigset_t ending;
    int i;

    for (i = 1; i < argc; i++) {
        if (strcmp(argv[i], "--names") == 0) {
            flags = MSGSERVER_FLAG_NOCHECK;
        } else if (strcmp(argv[i], "--threads") == 0) {
            char *end = NULL;
            const long count = i + 1 < argc ? strtol(argv[++i], &end, 10) : 0;
            if (!end || end == argv[i] || *end != '\0' || count < 1 || count > THREADS_MAX) {
                return usage("--threads needs a number from 1 to 64", "");
            }
            thread_count = (int)count;
        } else {
            return usage("unknown argument ", argv[i]);
        }
    }

    /* Blocked in every thread, so that the signal waits for sigwait() below. */
    sigemptyset(&ending);
    sigaddset(&ending, SIGTERM);
    sigaddset(&ending, SIGINT);
    pthread_sigmask(SIG_BLOCK, &ending, NULL);

    server = msgserver_create(LARGEST_REQUEST, HELD_ANSWERS, flags);
    if (!server) {
        return fail("cannot create the server");
    }
    if (msgserver_add(server, "echo", NULL, NULL, USUAL_REQUEST, echo, NULL, NULL) < 0) {
        return fail(errno == EADDRINUSE ? "another echo service runs" : "cannot add the service");
    }

    while (started < thread_count) {
        const int error = pthread_create(&threads[started], NULL, serve, NULL);
        if (error) {
            errno = error;
            break;
        }
        started++;
    }
    if (started < thread_count) {
        fail("cannot start a thread");
    } else {
        puts("echo_service: ready");
        fflush(stdout);
        sigwait(&ending, &signal_number);
    }

    stop_threads(threads, started);
    channel_destroy(server->channel); /* withdraws the name */
    return started < thread_count ? EXIT_FAILURE : EXIT_SUCCESS;
}
