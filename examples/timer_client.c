/*
 * Starts timers at the timer service without waiting for each, and prints the number of each when
 * it ends.
 *
 *     timer_client MILLISECONDS...
 */
#define _XOPEN_SOURCE 700

#include <errno.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/time.h>

#include <vantro/messaging.h>

static int fail(const char *what, int status) {
    fprintf(stderr, "timer_client: %s: %s\n", what, strerror(status == -1 ? errno : status));
    return EXIT_FAILURE;
}

static void interrupt(int number) {
    (void)number;
}

/* Waits for the next pulse. A service that ends sends none, so a signal ends the wait once a second
 * for a look at the connection. @return its value, or 0 if the service is gone. */
static uint32_t wait_for_pulse(MsgClient *client) {
    const struct itimerval every_second = {{1, 0}, {1, 0}}, never = {{0, 0}, {0, 0}};
    uint32_t value = 0;
    setitimer(ITIMER_REAL, &every_second, NULL);
    while (value == 0 && ipc_connected(client->connection) == 1) {
        value = msgclient_wait_pulse(client);
    }
    setitimer(ITIMER_REAL, &never, NULL); /* it would interrupt the exchanges too */
    return value;
}

int main(int argc, char **argv) {
    int result = EXIT_SUCCESS;
    int left = 0; /* puts whose answers are missing */
    int status;
    int i;
    struct sigaction action;
    MsgClient *timers = msgclient_open("timer", NULL, 0);
    if (!timers) {
        return fail("no timer for us", errno);
    }
    memset(&action, 0, sizeof action); /* without SA_RESTART */
    action.sa_handler = interrupt;
    sigaction(SIGALRM, &action, NULL);
    /* The service holds the answers until they are fetched, and sends a pulse for each. */
    status = msgclient_notify_pulse(timers, (uint32_t)argc);
    if (status != 0) {
        result = fail("cannot be notified", status);
        msgclient_close(timers);
        return result;
    }
    for (i = 1; i < argc; i++) {
        char *end = NULL;
        const unsigned long long number = strtoull(argv[i], &end, 10);
        const uint32_t ms = (uint32_t)number;
        if (end == argv[i] || *end != '\0' || number != ms) {
            result = fail(argv[i], EINVAL);
            continue;
        }
        status = msgclient_put(timers, (uint32_t)i, &ms, sizeof ms, 0); /* i is the answer's tag */
        if (status == 0) {
            left++;
        } else {
            result = fail(argv[i], status);
        }
    }
    while (left > 0) {
        const uint32_t tag = wait_for_pulse(timers);
        if (tag == 0) {
            result = fail("the service is gone", ECONNRESET);
            break;
        }
        status = msgclient_get(timers, tag, NULL, 0, NULL, 0);
        if (status == 0) {
            printf("%u\n", (unsigned)tag);
            fflush(stdout);
        } else {
            result = fail("a timer", status);
        }
        left--;
    }
    msgclient_close(timers);
    return result;
}
