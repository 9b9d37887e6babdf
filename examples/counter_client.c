/*
 * Asks the counter service to add numbers, and prints each sum. All numbers go through one open of
 * the service.
 *
 *     counter_client NUMBER...
 */
#include <errno.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <vantro/messaging.h>

int main(int argc, char **argv) {
    int result = EXIT_SUCCESS;
    int i;
    MsgClient *counter = msgclient_open("counter", NULL, 0);
    if (!counter) {
        fprintf(stderr, "counter_client: no counter service: %s\n", strerror(errno));
        return EXIT_FAILURE;
    }
    for (i = 1; i < argc; i++) {
        const int32_t number = (int32_t)strtol(argv[i], NULL, 10);
        int32_t sum = 0;
        uint32_t length = 0;
        /* Either the status of the service's answer or an error number of the exchange. */
        const int status =
            msgclient_putget(counter, &number, sizeof number, &sum, sizeof sum, &length, 0);
        if (status == 0 && length == sizeof sum) {
            printf("%d\n", (int)sum);
        } else {
            fprintf(stderr, "counter_client: %d: %s\n", (int)number,
                    status == 0 ? "the answer is too short" : strerror(status));
            result = EXIT_FAILURE;
        }
    }
    msgclient_close(counter);
    return result;
}
