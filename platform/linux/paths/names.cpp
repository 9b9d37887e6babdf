// Global names.
#include <vantro/platform/names.h>

#include <cerrno>
#include <memory>
#include <new>

#include "platform/linux/messages/connection.h"
#include "platform/linux/messages/ids.h"
#include "platform/linux/paths/path_dispatch.h"
#include "platform/linux/runtime/published_name.h"
#include "platform/portable/guards.h"

using namespace vantro::platform;

namespace {

// Names have a separate folder, apart from the paths.
std::string place_of(const char *name) {
    return std::string("name/") + name;
}

} // namespace

int global_name_open(const char *name, int) {
    if (!name) {
        return fail(EINVAL);
    }
    const CancelDisabled no_cancel;
    return or_no_memory([name] {
        UniqueFd control = connect_to_name(place_of(name));
        return control
                   ? Connections::instance().open(std::move(control), NumberKind::name_connection)
                   : -1;
    });
}

int global_name_close(int connection) {
    if (kind_of(connection) != NumberKind::name_connection) {
        return fail(EBADF);
    }
    const auto closed = Connections::instance().remove(connection);
    return closed && !closed->abandoned() ? 0 : fail(EBADF);
}

struct global_name_attachment *global_name_attach(struct path_dispatch *dispatch, const char *name,
                                                  int) {
    if (!dispatch || !name) {
        errno = EINVAL;
        return nullptr;
    }
    try {
        auto attachment = std::make_unique<global_name_attachment>();
        attachment->dispatch = dispatch;
        attachment->channel = dispatch->channel;
        dispatch->names.reserve(dispatch->names.size() + 1);
        if (listen_on(dispatch->channel, place_of(name), 0) != 0) {
            return nullptr;
        }
        dispatch->names.push_back(std::move(attachment));
        return dispatch->names.back().get();
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return nullptr;
    }
}
