#include "tools/grantor/device.h"

#include <cerrno>
#include <cstring>
#include <string_view>

#include <sys/stat.h>

#include <vantro/platform/message.h>

namespace vantro::grantor {

Device::~Device() {
    path_context_free(context_);
    if (channel_ >= 0) {
        channel_destroy(channel_);
    }
    path_dispatch_destroy(dispatch_);
}

bool Device::attach(const DeviceAccess &access) {
    channel_ = channel_create(CHANNEL_DISCONNECT);
    dispatch_ = channel_ < 0 ? nullptr : path_dispatch_create(channel_, 0);
    context_ = dispatch_ ? path_context_alloc(dispatch_) : nullptr;
    if (!context_) {
        return false;
    }
    path_funcs_init(PATH_CONNECT_HANDLER_COUNT, &connect_, PATH_IO_HANDLER_COUNT, &io_);
    io_.handlers[PATH_IO_WRITE] = write;
    path_attr &attr = attached_.attr;
    path_attr_init(&attr, S_IFCHR | access.perms, nullptr, nullptr);
    attr.uid = access.uid.value_or(attr.uid);
    attr.gid = access.gid.value_or(attr.gid);
    attached_.device = this;
    return path_attach(dispatch_, nullptr, grantor_path, 0, 0, &connect_, &io_, &attr) >= 0;
}

bool Device::serve() {
    for (;;) {
        const int id = path_receive(context_);
        if (id < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        ipc_pulse pulse = {};
        if (id == 0 && context_->message_length >= sizeof pulse) {
            std::memcpy(&pulse, context_->message, sizeof pulse);
        }
        if (pulse.code == GRANTOR_PULSE_SIGNAL) {
            return true;
        }
        path_dispatch_handle(context_); // A failure to deliver the answer affects its client only.
    }
}

int Device::write(path_request *request) {
    const Device *device = static_cast<const Attached *>(request->handle)->device;
    const std::string_view line(static_cast<const char *>(request->data), request->length);
    const auto check = parse_check_line(line);
    return check ? count_granted(device->policy_, *check) : -EINVAL;
}

} // namespace vantro::grantor
