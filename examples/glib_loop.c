/*
 * A now-playing line from GLib's main loop, for programs built on GTK, GStreamer and the like.
 *
 *     glib_loop [PLAYER]
 *
 * Prints a line for each track and each change of the player's state. Waits for the service, and
 * continues when it is started again. Ends after SIGINT or SIGTERM.
 */
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>

#include <glib-unix.h>
#include <vantro/extras.h>
#include <vantro/player.h>

enum { ANSWER_MS = 500, RETRY_SECONDS = 1 };

struct followed {
    const char *name;
    VantroHandle *handle; /* NULL while there is no service */
    GMainLoop *loop;
};

static void print_track(const struct followed *player, const VantroEvent *event) {
    const Metadata *known = event->details.track.metadata;
    const MediaNode *node = event->details.track.media_node;
    if (known && known->title) {
        printf("%s: %s%s%s\n", player->name, known->title, known->artist ? " - " : "",
               known->artist ? known->artist : "");
    } else if (node && node->name) {
        printf("%s: %s\n", player->name, node->name);
    }
}

static const char *state_name(int32_t state) {
    static const char *const names[] = {"unknown", "idle", "playing", "paused", "stopped"};
    return state >= 0 && state < (int32_t)G_N_ELEMENTS(names) ? names[state] : "unknown";
}

/* Called when the descriptor is readable. Takes one event; if there are more, it is called again.
 */
static gboolean on_event(gint descriptor, GIOCondition condition, gpointer data) {
    const struct followed *player = data;
    const VantroEvent *event = vantro_event_get(player->handle);
    (void)descriptor;
    (void)condition;
    if (!event && errno != EBADMSG) {
        perror("glib_loop: the player can no longer be followed");
        g_main_loop_quit(player->loop);
        return G_SOURCE_REMOVE;
    }
    if (event && event->type == VANTRO_EVENT_TRACK) {
        print_track(player, event);
    } else if (event && event->type == VANTRO_EVENT_STATE) {
        printf("%s: %s\n", player->name, state_name(event->state));
    }
    fflush(stdout);
    return G_SOURCE_CONTINUE;
}

/* Connects, if that is possible by now. From then on the handle finds the service again by
 * itself: the descriptor stays the same, and the source stays in the loop. */
static gboolean join(gpointer data) {
    struct followed *player = data;
    VantroHandle *handle = vantro_connect_timed(ANSWER_MS);
    if (!handle) {
        return G_SOURCE_CONTINUE; /* tried again after RETRY_SECONDS */
    }
    if (vantro_set_reconnect(handle, VANTRO_RECONNECT_ON) != 0 ||
        vantro_open(handle, player->name) != 0 || vantro_event_fd(handle) < 0) {
        VantroFailure failure;
        vantro_last_failure(&failure);
        fprintf(stderr, "glib_loop: %s: %s\n", player->name, failure.text);
        vantro_disconnect(handle);
        return G_SOURCE_CONTINUE;
    }
    player->handle = handle;
    g_unix_fd_add(vantro_event_fd(handle), G_IO_IN, on_event, player);
    return G_SOURCE_REMOVE;
}

static gboolean end(gpointer data) {
    g_main_loop_quit(data);
    return G_SOURCE_CONTINUE;
}

int main(int argc, char **argv) {
    struct followed player = {argc > 1 ? argv[1] : "main", NULL, g_main_loop_new(NULL, FALSE)};
    g_unix_signal_add(SIGINT, end, player.loop);
    g_unix_signal_add(SIGTERM, end, player.loop);
    if (join(&player) == G_SOURCE_CONTINUE) {
        g_timeout_add_seconds(RETRY_SECONDS, join, &player);
    }
    g_main_loop_run(player.loop);
    vantro_disconnect(player.handle);
    g_main_loop_unref(player.loop);
    return EXIT_SUCCESS;
}
