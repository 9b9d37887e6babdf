// Starting threads while a request is served. The serving thread may be confined to one processor.
#ifndef VANTRO_SERVICE_FREE_THREAD_H
#define VANTRO_SERVICE_FREE_THREAD_H

#include <thread>
#include <utility>

#include <vantro/platform/message.h>

namespace vantro::service {

// Starts a thread that may run on any processor that the service may use. Throws std::system_error.
template <typename Function>
std::thread start_free_thread(Function function) {
    channel_free_processor();
    return std::thread(std::move(function));
}

} // namespace vantro::service

#endif
