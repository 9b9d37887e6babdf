#include "platform/linux/messages/lane_look.h"

#include <sched.h>

#include <utility>

namespace vantro::platform {

std::atomic<bool> looking_allowed = true;

void LaneLook::received(const Source &source, ReceivedMessage &message) {
    if (is_unwatched_ && (!message.words || source.pack() != source_.pack())) {
        end();
    }
    words_ = std::move(message.words);
    source_ = source;
    channel_ = message.info.channel;
    sender_ = message.sender;
}

bool LaneLook::begin(int channel, bool has_answered) {
    if (!words_) {
        end();
        return false;
    }
    // A peer on this processor cannot send while this thread looks.
    if (!has_answered || channel != channel_ || sender_ == ::sched_getcpu() || !looking_allowed ||
        !budget_.allows(monotonic_ns())) {
        end();
        return false;
    }
    // The client is about to sleep, and has requested that the lane be watched again.
    if (is_unwatched_ && words_->lane(source_.lane).unwatched.load() == 0) {
        end();
        return false;
    }
    return true;
}

bool LaneLook::must_check_wait_set(WaitSets &wait_sets) {
    if (!is_unwatched_ || wait_sets.waiting() > 0) {
        return false;
    }
    const int64_t now = monotonic_ns();
    if (now - wait_set_seen_at_ < wait_set_ns) {
        return false;
    }
    wait_set_seen_at_ = now;
    return true;
}

bool LaneLook::unwatch() {
    Server &server = Server::instance();
    const MutexLock guard(server_lock);
    Lane *const lane = server.find_open_lane(source_);
    if (!lane || lane->is_unwatched || lane->state != LaneState::idle) {
        return false;
    }
    // The order matters: if a client sleeps without sending control_watch_lane, it sent its message
    // before it could see the lane unwatched, and so before the check of the socket that follows.
    words_->lane(source_.lane).unwatched = 1;
    server.find_client(source_.serial)->channel->wait_sets.pause(lane->socket.fd);
    is_unwatched_ = lane->is_unwatched = true;
    wait_set_seen_at_ = monotonic_ns();
    return true;
}

void LaneLook::end() {
    words_.reset();
    if (std::exchange(is_unwatched_, false)) {
        const MutexLock guard(server_lock);
        Server::instance().watch_lane_again(source_);
    }
}

} // namespace vantro::platform

void ipc_allow_looking(int allowed) {
    vantro::platform::looking_allowed = allowed != 0;
}
