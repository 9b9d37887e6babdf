// Commands about the client itself and about the bridge.
#include <algorithm>

#include <fmt/format.h>

#include "bridges/mpd/ack.h"
#include "bridges/mpd/client.h"
#include "bridges/mpd/commands/handlers.h"
#include "bridges/mpd/text.h"

namespace vantro::mpd {
namespace {

// Pieces of covers. Larger ones would fill the output of a slow client.
constexpr int32_t binary_least = 64;
constexpr int32_t binary_most = 1024 * 1024;

TagSet tags_named(Arguments names) {
    TagSet tags;
    for (const std::string &name : names) {
        const std::optional<Tag> tag = tag_named(name);
        if (!tag) {
            throw Ack(AckCode::argument, fmt::format("unknown tag \"{}\"", name));
        }
        if (*tag != Tag::absent) {
            tags.set(index_of(*tag));
        }
    }
    return tags;
}

void list_tags(Reply &reply, const TagSet &tags) {
    for (size_t i = 0; i < tag_count; ++i) {
        if (tags[i]) {
            reply.pair("tagtype", tag_names[i].name);
        }
    }
}

void list_commands(Context &context, bool allowed) {
    for (const Command &command : all_commands()) {
        if (context.client.permissions().allow(command.permission) == allowed) {
            context.reply.pair("command", command.name);
        }
    }
}

} // namespace

TaskPtr run_nothing(Context &, Arguments) {
    return nullptr;
}

TaskPtr run_close(Context &context, Arguments) {
    context.client.close();
    return nullptr;
}

TaskPtr run_password(Context &context, Arguments arguments) {
    if (!context.client.give_password(arguments[0])) {
        throw Ack(AckCode::password, "incorrect password");
    }
    return nullptr;
}

TaskPtr run_commands(Context &context, Arguments) {
    list_commands(context, true);
    return nullptr;
}

TaskPtr run_notcommands(Context &context, Arguments) {
    list_commands(context, false);
    return nullptr;
}

TaskPtr run_idle(Context &context, Arguments arguments) {
    Subsystems wanted;
    for (const std::string &name : arguments) {
        const auto *const found =
            std::find_if(subsystem_names.begin(), subsystem_names.end(),
                         [&](std::string_view each) { return same_name(each, name); });
        if (found == subsystem_names.end()) {
            throw Ack(AckCode::argument, fmt::format("unknown subsystem \"{}\"", name));
        }
        wanted.set(static_cast<size_t>(found - subsystem_names.begin()));
    }
    context.client.wait_for(arguments.empty() ? Subsystems().set() : wanted);
    return nullptr;
}

TaskPtr run_binarylimit(Context &context, Arguments arguments) {
    context.client.binary_limit =
        static_cast<size_t>(parse_integer(arguments[0], binary_least, binary_most));
    return nullptr;
}

TaskPtr run_tagtypes(Context &context, Arguments arguments) {
    TagSet &shown = context.client.shown_tags;
    if (arguments.empty()) {
        list_tags(context.reply, shown);
        return nullptr;
    }
    const std::string &verb = arguments[0];
    const Arguments names = arguments.subspan(1);
    const bool takes_names = verb == "enable" || verb == "disable" || verb == "reset";
    if (takes_names != !names.empty() && verb != "reset") {
        throw Ack(AckCode::argument, "wrong number of arguments for \"tagtypes\"");
    }
    if (verb == "enable") {
        shown |= tags_named(names);
    } else if (verb == "disable") {
        shown &= ~tags_named(names);
    } else if (verb == "reset") {
        shown = tags_named(names);
    } else if (verb == "clear") {
        shown.reset();
    } else if (verb == "all") {
        shown.set();
    } else if (verb == "available") {
        list_tags(context.reply, TagSet().set());
    } else {
        throw Ack(AckCode::argument, fmt::format("unknown sub command \"{}\"", verb));
    }
    return nullptr;
}

} // namespace vantro::mpd
