// The one output of each player. It is on as long as the player is not muted.
#include "bridges/mpd/commands/handlers.h"
#include "bridges/mpd/partition.h"
#include "bridges/mpd/service_call.h"
#include "bridges/mpd/text.h"

namespace vantro::mpd {
namespace {

void check_output(const std::string &id) {
    if (parse_unsigned(id) != 0) {
        throw Ack(AckCode::no_exist, "no such output");
    }
}

bool muted(Context &context) {
    return checked(context.partition.player().volume()).muted != 0;
}

} // namespace

TaskPtr run_outputs(Context &context, Arguments) {
    context.reply.number("outputid", 0);
    context.reply.pair("outputname", context.partition.name());
    context.reply.pair("plugin", "vantro");
    context.reply.number("outputenabled", !muted(context));
    return nullptr;
}

TaskPtr run_enableoutput(Context &context, Arguments arguments) {
    check_output(arguments[0]);
    checked(context.partition.player().set_muted(false));
    return nullptr;
}

TaskPtr run_disableoutput(Context &context, Arguments arguments) {
    check_output(arguments[0]);
    checked(context.partition.player().set_muted(true));
    return nullptr;
}

TaskPtr run_toggleoutput(Context &context, Arguments arguments) {
    check_output(arguments[0]);
    checked(context.partition.player().set_muted(!muted(context)));
    return nullptr;
}

} // namespace vantro::mpd
