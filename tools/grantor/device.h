// The device "/dev/grantor": a write carries a check line, and its answer is a count.
#ifndef VANTRO_TOOLS_GRANTOR_DEVICE_H
#define VANTRO_TOOLS_GRANTOR_DEVICE_H

#include <cstdint>
#include <optional>
#include <utility>

#include <vantro/platform/path.h>

#include "tools/grantor/policy.h"

namespace vantro::grantor {

constexpr const char *grantor_path = "/dev/grantor";

// Who may open the device and query it.
struct DeviceAccess {
    uint32_t perms = 0600;
    std::optional<uint32_t> uid; // Owner; the effective user unless given.
    std::optional<uint32_t> gid; // Group; likewise.
};

// Pulses that the device's channel receives from its own process.
enum { GRANTOR_PULSE_SIGNAL = 1 };

// The device of this process. It serves in one thread and has no locks.
class Device {
  public:
    explicit Device(Policy policy) : policy_(std::move(policy)) {}
    Device(const Device &) = delete;
    Device &operator=(const Device &) = delete;
    ~Device();

    // Makes the channel and publishes the path. @return false with errno.
    bool attach(const DeviceAccess &access);

    // Serves until a pulse of the process itself arrives. @return false with errno.
    bool serve();

    int channel() const { return channel_; }
    const Policy &policy() const { return policy_; }
    void set_policy(Policy policy) { policy_ = std::move(policy); }

  private:
    static int write(path_request *request);

    // The record that a handler gets, with a pointer back to the device.
    struct Attached {
        path_attr attr;
        Device *device;
    };

    Attached attached_ = {};
    path_connect_funcs connect_ = {};
    path_io_funcs io_ = {};
    Policy policy_;
    int channel_ = -1;
    path_dispatch *dispatch_ = nullptr;
    path_context *context_ = nullptr;
};

} // namespace vantro::grantor

#endif
