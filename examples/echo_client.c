/*
 * Sends its argument to the echo service and prints the answer.
 *
 *     echo_client TEXT
 */
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <vantro/messaging.h>

enum { EXIT_USAGE = 2 };

static int exchange(MsgClient *client, const char *text, uint32_t length, char *answer) {
    uint32_t answer_length = 0;
    const int result = msgclient_putget(client, text, length, answer, length, &answer_length, 0);
    if (result != 0) {
        fprintf(stderr, "echo_client: the request failed: %s\n", strerror(result));
        return EXIT_FAILURE;
    }
    printf("%.*s\n", (int)answer_length, answer);
    return fflush(stdout) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

int main(int argc, char **argv) {
    MsgClient *client;
    char *answer;
    size_t length;
    int result;

    if (argc != 2) {
        fputs("usage: echo_client TEXT\n", stderr);
        return EXIT_USAGE;
    }
    client = msgclient_open("echo", NULL, 0);
    if (!client) {
        fprintf(stderr, "echo_client: no echo service: %s\n", strerror(errno));
        return EXIT_FAILURE;
    }
    length = strlen(argv[1]);
    answer = malloc(length + 1);
    if (!answer) {
        fputs("echo_client: no memory\n", stderr);
        result = EXIT_FAILURE;
    } else {
        result = exchange(client, argv[1], (uint32_t)length, answer);
    }
    free(answer);
    msgclient_close(client);
    return result;
}
