#include <stdio.h>
#include <vantro/player.h>

int main(void) {
    VantroHandle *player = vantro_connect();
    const VantroEvent *event = NULL;
    if (!player || vantro_open(player, "main") != 0) {
        return 1;
    }
    while (vantro_event_wait(player) == 0 && (event = vantro_event_get(player))) {
        if (event->type == VANTRO_EVENT_STATE) {
            printf("state %d at rate %g\n", (int)event->state, event->rate);
        }
    }
    return vantro_disconnect(player);
}
