#include "bridges/web/event_stream.h"

#include <algorithm>
#include <utility>

namespace vantro::web {

int EventStream::descriptor() const {
    const MHD_ConnectionInfo *const info =
        MHD_get_connection_info(connection_, MHD_CONNECTION_INFO_CONNECTION_FD);
    return info ? info->connect_fd : -1;
}

void EventStream::resume() {
    if (std::exchange(suspended_, false)) {
        MHD_resume_connection(connection_);
    }
}

void EventStream::notify(const Changes &changes) {
    pending_ |= changes;
    resume();
}

void EventStream::end() {
    ended_ = true;
    resume();
}

void EventStream::take_next() {
    text_.clear();
    sent_ = 0;
    if (!std::exchange(begun_, true)) {
        text_ += "retry: 1000\n\n";
    }
    if (std::exchange(pending_.state, false)) {
        text_ += "event: state\ndata: " + *link_.state_json() + "\n\n";
    }
    if (std::exchange(pending_.sources, false)) {
        text_ += "event: sources\ndata: {}\n\n";
    }
}

ssize_t EventStream::read(char *buffer, size_t size) {
    if (ended_) {
        return MHD_CONTENT_READER_END_OF_STREAM;
    }
    if (sent_ == text_.size()) {
        take_next();
    }
    const size_t count = std::min(size, text_.size() - sent_);
    text_.copy(buffer, count, sent_);
    sent_ += count;
    if (count == 0) {
        suspended_ = true;
        MHD_suspend_connection(connection_);
    }
    return static_cast<ssize_t>(count);
}

} // namespace vantro::web
