// What the service tells the manager that started it, systemd: that it is ready, how it is, and
// that it ends. Does nothing if no manager asked for it.
#ifndef VANTRO_SERVICE_SERVICE_MANAGER_H
#define VANTRO_SERVICE_SERVICE_MANAGER_H

#include <chrono>
#include <string>

namespace vantro::service::service_manager {

// Clients are served from now on.
void tell_ready();
// The configuration is read again; tell_ready() is to follow.
void tell_reloading();
// One line for people.
void tell_status(const std::string &status);
void tell_stopping();

// How long the manager waits for tell_alive() at most; 0 if it does not wait for it.
std::chrono::milliseconds watchdog_time();
void tell_alive();

} // namespace vantro::service::service_manager

#endif
