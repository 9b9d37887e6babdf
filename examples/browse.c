/*
 * Lists the media sources, and of each the entries at its top and those one level below.
 *
 *     browse [PLAYER]
 *
 * PLAYER is the player to open; the default is "main".
 */
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <vantro/catalogue.h>
#include <vantro/extras.h>
#include <vantro/player.h>

enum { LEVELS = 2, PAGE = 100, INDENT = 2, EXIT_USAGE = 2 };

/* Every string of a record may be absent. */
static const char *text(const char *string) {
    return string ? string : "";
}

/* Lists a node page by page, so that a node of any size takes the memory of one page a level. */
static int list(VantroHandle *player, int32_t ms_id, const char *node_id, int level) {
    int32_t offset = 0;
    int result = 0;
    int count;
    do {
        MediaNode *nodes = NULL;
        int i;
        count = PAGE;
        if (vantro_browse(player, ms_id, node_id, offset, &count, &nodes) != 0) {
            fprintf(stderr, "browse: cannot list \"%s\"; the system's log says why\n", node_id);
            return -1;
        }
        if (!nodes) {
            count = 0; /* no records came, and the pointer was left alone */
        }
        for (i = 0; i < count && result == 0; i++) {
            printf("%*s%s", level * INDENT, "", text(nodes[i].name));
            if (nodes[i].count > 0) {
                printf(" (%d)", (int)nodes[i].count);
            }
            putchar('\n');
            if (level < LEVELS && nodes[i].count > 0) {
                result = list(player, ms_id, text(nodes[i].id), level + 1);
            }
        }
        vantro_free_media_nodes(nodes, count);
        offset += count;
    } while (count == PAGE && result == 0);
    return result;
}

static int list_sources(VantroHandle *player) {
    MediaSource *sources = NULL;
    int result = 0;
    int count = 0;
    int i;
    if (vantro_get_media_sources(player, &sources, &count) != 0) {
        fputs("browse: cannot list the media sources; the system's log says why\n", stderr);
        return -1;
    }
    for (i = 0; i < count && result == 0; i++) {
        const char *name = sources[i].view_name ? sources[i].view_name : sources[i].name;
        printf("%s%s\n", text(name),
               sources[i].status == VANTRO_SOURCE_SCANNING ? " (still being read)" : "");
        result = list(player, sources[i].id, VANTRO_NODE_ROOT, 1);
    }
    vantro_free_all_media_sources(sources);
    return result;
}

int main(int argc, char **argv) {
    const char *name = argc == 2 ? argv[1] : "main";
    VantroHandle *player;
    int result = EXIT_FAILURE;

    if (argc > 2) {
        fputs("usage: browse [PLAYER]\n", stderr);
        return EXIT_USAGE;
    }
    player = vantro_connect();
    if (!player) {
        fprintf(stderr, "browse: no player service: %s\n", strerror(errno));
        return EXIT_FAILURE;
    }
    if (vantro_open(player, name) != 0) {
        fprintf(stderr, "browse: cannot open the player \"%s\"\n", name);
    } else if (list_sources(player) == 0 && fflush(stdout) == 0) {
        result = EXIT_SUCCESS;
    }
    vantro_disconnect(player);
    return result;
}
