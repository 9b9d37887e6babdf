// The messages that other clients have sent to one client, on the channels of its subscriptions.
#ifndef VANTRO_BRIDGES_MPD_MAILBOX_H
#define VANTRO_BRIDGES_MPD_MAILBOX_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace vantro::mpd {

// There is no list of channels: a channel exists as long as a client is subscribed to it.
class Mailbox {
  public:
    // Limits for each client. Other servers have the same values for the first two.
    static constexpr size_t channels_max = 16;
    static constexpr size_t messages_max = 64;
    static constexpr size_t bytes_max = 64 * 1024;
    static constexpr size_t name_max = 128;

    struct Message {
        std::string channel;
        std::string text;
    };

    static bool is_channel_name(std::string_view name);

    const std::vector<std::string> &channels() const { return channels_; }
    bool is_subscribed(std::string_view channel) const;

    void subscribe(const std::string &channel) { channels_.push_back(channel); }
    // @return whether it was subscribed.
    bool unsubscribe(std::string_view channel);

    // Keeps a message until the client reads it. If there is no room, the message is lost.
    void deliver(const std::string &channel, const std::string &text);

    // The received messages, oldest first.
    std::vector<Message> take();

  private:
    std::vector<std::string> channels_;
    std::vector<Message> messages_;
    size_t bytes_ = 0; // The size of all messages.
};

} // namespace vantro::mpd

#endif
