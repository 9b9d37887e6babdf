/*
 * Follows several players and a timer in one thread, also from one run of the service to the next.
 *
 *     poll_loop PLAYER...
 *
 * Prints a line for each change of a player's state, and a dot for each second. Ends after a
 * signal.
 */
#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <vantro/extras.h>
#include <vantro/player.h>

enum { PLAYERS_MAX = 8, EXIT_USAGE = 2, ANSWER_MS = 500 };

struct followed {
    const char *name;
    VantroHandle *handle; /* NULL while there is no service */
};

static volatile sig_atomic_t ended = 0;

static void end(int number) {
    (void)number;
    ended = 1;
}

static const char *state_name(int32_t state) {
    switch (state) {
    case VANTRO_STATE_PLAYING:
        return "playing";
    case VANTRO_STATE_PAUSED:
        return "paused";
    case VANTRO_STATE_STOPPED:
        return "stopped";
    default:
        return "idle";
    }
}

/* Closes the connection to a service that has ended. */
static void leave(struct followed *player) {
    if (player->handle) {
        vantro_disconnect(player->handle);
        player->handle = NULL;
        printf("%s: gone\n", player->name);
    }
}

/* Connects if that is possible by now. A service that does not answer does not hold up the loop. */
static void join(struct followed *player) {
    VantroHandle *handle = vantro_connect_timed(ANSWER_MS);
    if (!handle) {
        return;
    }
    if (vantro_open(handle, player->name) != 0 || vantro_event_fd(handle) < 0) {
        VantroFailure failure;
        vantro_last_failure(&failure);
        fprintf(stderr, "poll_loop: %s: %s\n", player->name, failure.text);
        vantro_disconnect(handle);
        return;
    }
    player->handle = handle;
}

/* Reports one event: the descriptor stays readable until there is none. */
static void tell(struct followed *player) {
    const VantroEvent *event = vantro_event_get(player->handle);
    if (!event) {
        if (errno != EBADMSG) {
            leave(player);
        }
    } else if (event->type == VANTRO_EVENT_STATE) {
        printf("%s: %s\n", player->name, state_name(event->state));
    } else if (event->type == VANTRO_EVENT_ERROR) {
        printf("%s: error %d\n", player->name, (int)event->details.error.code);
    }
    fflush(stdout);
}

int main(int argc, char **argv) {
    const struct itimerspec each_second = {{1, 0}, {0, 1}};
    const int timer = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
    const int count = argc - 1;
    struct followed players[PLAYERS_MAX];
    struct pollfd files[PLAYERS_MAX + 1];
    struct sigaction action;
    int i;
    if (count < 1 || count > PLAYERS_MAX) {
        fprintf(stderr, "usage: poll_loop PLAYER... (at most %d)\n", PLAYERS_MAX);
        return EXIT_USAGE;
    }
    memset(&action, 0, sizeof action);
    action.sa_handler = end;
    sigaction(SIGINT, &action, NULL);
    sigaction(SIGTERM, &action, NULL);
    if (timer < 0 || timerfd_settime(timer, 0, &each_second, NULL) != 0) {
        perror("poll_loop: no timer");
        return EXIT_FAILURE;
    }
    for (i = 0; i < count; i++) {
        players[i].name = argv[i + 1];
        players[i].handle = NULL;
    }
    while (!ended) {
        for (i = 0; i < count; i++) {
            files[i].fd = players[i].handle ? vantro_event_fd(players[i].handle) : -1;
            files[i].events = POLLIN;
        }
        files[count].fd = timer;
        files[count].events = POLLIN;
        if (poll(files, (nfds_t)count + 1, -1) < 0) {
            continue; /* a signal handler ran */
        }
        for (i = 0; i < count; i++) {
            if (players[i].handle && files[i].revents != 0) {
                tell(&players[i]);
            }
        }
        if (files[count].revents != 0) {
            uint64_t seconds;
            if (read(timer, &seconds, sizeof seconds) == sizeof seconds) {
                printf(".\n");
                fflush(stdout);
            }
            for (i = 0; i < count; i++) {
                if (!players[i].handle) {
                    join(&players[i]);
                }
            }
        }
    }
    for (i = 0; i < count; i++) {
        leave(&players[i]);
    }
    close(timer);
    return EXIT_SUCCESS;
}
