#include "service/service_manager.h"

#include <systemd/sd-daemon.h>

namespace vantro::service::service_manager {

void tell_ready() {
    sd_notify(0, "READY=1");
}

void tell_status(const std::string &status) {
    sd_notify(0, ("STATUS=" + status).c_str());
}

void tell_stopping() {
    sd_notify(0, "STOPPING=1");
}

} // namespace vantro::service::service_manager
