// Messages between the clients of one player.
#include <set>

#include "bridges/mpd/ack.h"
#include "bridges/mpd/client.h"
#include "bridges/mpd/commands/handlers.h"

namespace vantro::mpd {
namespace {

void check_name(const std::string &channel) {
    if (!Mailbox::is_channel_name(channel)) {
        throw Ack(AckCode::argument, "a channel's name may contain only letters, digits and _-.:");
    }
}

// Calls a function with each client of the same player.
template <typename Call>
void for_neighbours(Context &context, const Call &call) {
    for (auto &[descriptor, client] : context.clients) {
        if (&client.partition() == &context.partition) {
            call(client);
        }
    }
}

void tell_subscription(Context &context) {
    for_neighbours(context, [](Client &client) { client.notify(only(Subsystem::subscription)); });
}

} // namespace

TaskPtr run_subscribe(Context &context, Arguments arguments) {
    Mailbox &mailbox = context.client.mailbox;
    check_name(arguments[0]);
    if (mailbox.is_subscribed(arguments[0])) {
        throw Ack(AckCode::exist, "already subscribed to this channel");
    }
    if (mailbox.channels().size() == Mailbox::channels_max) {
        throw Ack(AckCode::exist, "subscribed to too many channels");
    }
    mailbox.subscribe(arguments[0]);
    tell_subscription(context);
    return nullptr;
}

TaskPtr run_unsubscribe(Context &context, Arguments arguments) {
    if (!context.client.mailbox.unsubscribe(arguments[0])) {
        throw Ack(AckCode::no_exist, "not subscribed to this channel");
    }
    tell_subscription(context);
    return nullptr;
}

TaskPtr run_channels(Context &context, Arguments) {
    std::set<std::string> names;
    for_neighbours(context, [&](const Client &client) {
        names.insert(client.mailbox.channels().begin(), client.mailbox.channels().end());
    });
    for (const std::string &name : names) {
        context.reply.pair("channel", name);
    }
    return nullptr;
}

TaskPtr run_sendmessage(Context &context, Arguments arguments) {
    const std::string &channel = arguments[0];
    check_name(channel);
    bool is_heard = false;
    for_neighbours(context, [&](Client &client) {
        if (client.mailbox.is_subscribed(channel)) {
            client.mailbox.deliver(channel, arguments[1]);
            client.notify(only(Subsystem::message));
            is_heard = true;
        }
    });
    if (!is_heard) {
        throw Ack(AckCode::no_exist, "no client is subscribed to this channel");
    }
    return nullptr;
}

TaskPtr run_readmessages(Context &context, Arguments) {
    for (const Mailbox::Message &message : context.client.mailbox.take()) {
        context.reply.pair("channel", message.channel);
        context.reply.pair("message", message.text);
    }
    return nullptr;
}

} // namespace vantro::mpd
