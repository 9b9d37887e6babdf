#include "service/service_manager.h"

#include <cstdint>
#include <ctime>
#include <systemd/sd-daemon.h>

namespace vantro::service::service_manager {

void tell_ready() {
    sd_notify(0, "READY=1");
}

void tell_reloading() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    sd_notifyf(0, "RELOADING=1\nMONOTONIC_USEC=%lld",
               static_cast<long long>(now.tv_sec) * 1'000'000 + now.tv_nsec / 1000);
}

void tell_status(const std::string &status) {
    sd_notify(0, ("STATUS=" + status).c_str());
}

void tell_stopping() {
    sd_notify(0, "STOPPING=1");
}

std::chrono::milliseconds watchdog_time() {
    uint64_t time_us = 0;
    return sd_watchdog_enabled(0, &time_us) > 0
               ? std::chrono::ceil<std::chrono::milliseconds>(std::chrono::microseconds(time_us))
               : std::chrono::milliseconds(0);
}

void tell_alive() {
    sd_notify(0, "WATCHDOG=1");
}

} // namespace vantro::service::service_manager
