// An example whose system calls a signal interrupts, and which prints each line at once.
#include <signal.h>
#include <stdio.h>

int example_main(void);

static void ignore(int number) {
    (void)number;
}

int main(void) {
    struct sigaction action = {0};
    action.sa_handler = ignore; // without SA_RESTART
    sigaction(SIGUSR1, &action, NULL);
    setvbuf(stdout, NULL, _IOLBF, 0);
    return example_main();
}
