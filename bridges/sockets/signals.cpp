#include "bridges/sockets/signals.h"

#include <csignal>

#include <sys/signalfd.h>

namespace vantro::sockets {

Descriptor ending_signals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    return Descriptor(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
}

} // namespace vantro::sockets
