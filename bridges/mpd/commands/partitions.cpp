// The players of the service.
#include "bridges/mpd/partitions.h"
#include "bridges/mpd/client.h"
#include "bridges/mpd/commands/handlers.h"

namespace vantro::mpd {

TaskPtr run_listpartitions(Context &context, Arguments) {
    for (const std::string &name : context.partitions.names()) {
        context.reply.pair("partition", name);
    }
    return nullptr;
}

TaskPtr run_partition(Context &context, Arguments arguments) {
    context.client.set_partition(context.partitions.get(arguments[0]));
    return nullptr;
}

} // namespace vantro::mpd
