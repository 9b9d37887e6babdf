#include "bridges/mpd/mailbox.h"

#include <algorithm>
#include <utility>

namespace vantro::mpd {

bool Mailbox::is_channel_name(std::string_view name) {
    const auto is_allowed = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '_' || c == '-' || c == '.' || c == ':';
    };
    return !name.empty() && name.size() <= name_max &&
           std::all_of(name.begin(), name.end(), is_allowed);
}

bool Mailbox::is_subscribed(std::string_view channel) const {
    return std::find(channels_.begin(), channels_.end(), channel) != channels_.end();
}

bool Mailbox::unsubscribe(std::string_view channel) {
    return std::erase(channels_, channel) > 0;
}

void Mailbox::deliver(const std::string &channel, const std::string &text) {
    if (messages_.size() < messages_max && bytes_ + text.size() <= bytes_max) {
        bytes_ += text.size();
        messages_.push_back({channel, text});
    }
}

std::vector<Mailbox::Message> Mailbox::take() {
    bytes_ = 0;
    return std::exchange(messages_, {});
}

} // namespace vantro::mpd
