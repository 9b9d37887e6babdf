#include <errno.h>
#include <stdio.h>
#include <vantro/player.h>

int main(void) {
    VantroHandle *player = vantro_connect();
    const VantroEvent *event = NULL;
    if (!player || vantro_open(player, "main") != 0) {
        fprintf(stderr, "no player \"main\"\n");
        return 1;
    }
    for (;;) {
        if (vantro_event_wait(player) != 0) {
            if (errno == EINTR) {
                continue; // a signal handler ran: wait again
            }
            break;
        }
        event = vantro_event_get(player);
        if (!event && errno != EBADMSG) {
            break;
        }
        if (event && event->type == VANTRO_EVENT_STATE) {
            printf("state %d at rate %g\n", (int)event->state, event->rate);
        }
    }
    perror("the player can no longer be followed");
    vantro_disconnect(player);
    return 1;
}
