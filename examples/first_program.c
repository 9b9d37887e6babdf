#include <stdio.h>
#include <vantro/player.h>

int main(void) {
    VantroHandle *player = vantro_connect();
    if (!player || vantro_open(player, "main") != 0 || vantro_play(player) != 0) {
        return 1;
    }
    puts("playing");
    return vantro_disconnect(player);
}
