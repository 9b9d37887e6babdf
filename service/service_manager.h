// Notifies the service manager, systemd, that the service is ready, of its status, and that it
// ends. Does nothing if the manager did not request notifications.
#ifndef VANTRO_SERVICE_SERVICE_MANAGER_H
#define VANTRO_SERVICE_SERVICE_MANAGER_H

#include <chrono>
#include <string>

namespace vantro::service::service_manager {

// Clients are served from now on.
void tell_ready();
// The configuration is being read again; tell_ready() must follow.
void tell_reloading();
// One line for people.
void tell_status(const std::string &status);
void tell_stopping();

// The longest time between two calls of tell_alive() that the manager accepts; 0 if it does not
// watch.
std::chrono::milliseconds watchdog_time();
void tell_alive();

} // namespace vantro::service::service_manager

#endif
