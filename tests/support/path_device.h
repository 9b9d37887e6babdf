// A grantor device that a thread of the test serves: a function answers each write.
#ifndef VANTRO_TESTS_SUPPORT_PATH_DEVICE_H
#define VANTRO_TESTS_SUPPORT_PATH_DEVICE_H

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include <vantro/platform/names.h>

namespace vantro::test {

class PathDevice {
  public:
    using Write = std::function<int(const std::string &)>;

    PathDevice(uint32_t mode, Write write) : channel_(channel_create(CHANNEL_DISCONNECT)) {
        on_write = std::move(write);
        closed = 0;
        dispatch_ = path_dispatch_create(channel_, 0);
        path_funcs_init(PATH_CONNECT_HANDLER_COUNT, &connect_, PATH_IO_HANDLER_COUNT, &io_);
        path_attr_init(&attr_, mode, nullptr, nullptr);
        io_.handlers[PATH_IO_WRITE] = [](path_request *request) {
            return on_write(std::string(static_cast<const char *>(request->data), request->length));
        };
        io_.handlers[PATH_IO_CLOSE] = [](path_request *) { return ++closed; };
        EXPECT_GE(path_attach(dispatch_, nullptr, "/dev/grantor", 0, 0, &connect_, &io_, &attr_),
                  0);
        thread_ = std::thread([this] {
            path_context *context = path_context_alloc(dispatch_);
            while (path_receive(context) >= 0) {
                path_dispatch_handle(context);
            }
            path_context_free(context);
        });
    }
    ~PathDevice() {
        channel_destroy(channel_);
        thread_.join();
        path_dispatch_destroy(dispatch_);
    }

    static inline std::atomic<int> closed{0};

  private:
    static inline Write on_write;
    const int channel_;
    path_dispatch *dispatch_ = nullptr;
    path_connect_funcs connect_ = {};
    path_io_funcs io_ = {};
    path_attr attr_ = {};
    std::thread thread_;
};

} // namespace vantro::test

#endif
