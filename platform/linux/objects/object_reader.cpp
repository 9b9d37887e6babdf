#include "platform/linux/objects/object_reader.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <vantro/platform/notify.h>

#include "platform/linux/objects/object_directory.h"
#include "platform/linux/objects/ring_words.h"
#include "platform/linux/runtime/runtime_directory.h"
#include "platform/portable/change_line.h"
#include "platform/portable/guards.h"
#include "platform/portable/object_state.h"

namespace vantro::platform {

namespace {

// A publisher writes a quarter of a megabyte at least before the snapshot that a reader copies is
// overwritten. One that is overtaken so often in a row tries again at its next call.
constexpr int starts_max = 16;

constexpr std::string_view delta_option = "?delta";

std::string_view first_line(std::string_view text) {
    return text.substr(0, text.find('\n'));
}

std::unique_ptr<ObjectReader> refuse(int error) {
    errno = error;
    return nullptr;
}

} // namespace

std::unique_ptr<ObjectReader> ObjectReader::open(std::string_view relative) {
    const Place place = find_place(relative);
    if (!place) {
        return nullptr;
    }
    std::string_view name = place.name;
    if (!name.ends_with(delta_option)) {
        return refuse(EINVAL);
    }
    name.remove_suffix(delta_option.size());
    if (!is_object_name(name)) {
        return refuse(EINVAL);
    }
    auto reader = std::make_unique<ObjectReader>();
    if (name != all_objects) {
        reader->object_ = name;
    }
    // Not to block, should a pipe lie in the ring's place.
    reader->ring_file_.reset(
        ::openat(place.directory.get(), ring_name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!reader->ring_file_) {
        // A link or a socket in its place is no ring.
        return refuse(errno == ELOOP || errno == ENXIO ? EBADMSG : errno);
    }
    if (!reader->ring_.open(reader->ring_file_.get())) {
        return nullptr;
    }
    if (reader->ring_.retired()) {
        return refuse(ENOENT);
    }
    if (!publisher_lives(reader->ring_file_.get())) {
        return refuse(ECONNREFUSED);
    }
    return reader;
}

bool ObjectReader::quiet() const {
    return !unsettled_.load(std::memory_order_relaxed) &&
           ring_.committed() == position_.load(std::memory_order_relaxed) && !ring_.retired();
}

ssize_t ObjectReader::read(void *buffer, size_t length) {
    if (quiet()) {
        return 0;
    }
    const CancelDisabled no_cancel;
    const std::lock_guard guard(lock_);
    if (!ring_file_) {
        return fail(EBADF);
    }
    try {
        if (!notification_.armed()) {
            end_watch();
        }
        switch (fetch()) {
        case Got::change:
            break;
        case Got::nothing:
        case Got::again:
            return 0;
        case Got::gone:
            return fail(ESTALE);
        case Got::noise:
            return fail(EBADMSG);
        }
    } catch (const std::bad_alloc &) {
        return fail(ENOMEM);
    }
    if (current_.size() > length) {
        return fail(EMSGSIZE);
    }
    const size_t given = current_.size();
    std::memcpy(buffer, current_.data(), given);
    current_.clear();
    unsettled_.store(must_start_over_ || gone_ || !pending_.empty(), std::memory_order_relaxed);
    return static_cast<ssize_t>(given);
}

ObjectReader::Got ObjectReader::fetch() {
    Got got = Got::noise;
    if (!current_.empty()) {
        got = Got::change;
    } else if (!is_noise_) {
        const uint64_t before = ring_.committed();
        got = Got::again;
        for (int start = 0; got == Got::again && start < starts_max; ++start) {
            got = find_next();
        }
        // Nobody overtakes without committing: told to try again, this reader would do so forever.
        if (got == Got::again && ring_.committed() == before) {
            got = Got::noise;
        }
        is_noise_ = got == Got::noise;
    }
    unsettled_.store(got != Got::nothing, std::memory_order_relaxed);
    return got;
}

// One go at it; `again` where the ring was overwritten meanwhile.
ObjectReader::Got ObjectReader::find_next() {
    if (must_start_over_) {
        if (const Got got = start_over(); got != Got::nothing) {
            return got;
        }
    }
    if (!pending_.empty()) {
        current_ = std::move(pending_.back());
        pending_.pop_back();
        return Got::change;
    }
    // What is appended from here on is the next call's: a busy publisher keeps no reader.
    gone_ = gone_ || ring_.retired();
    const Got got = follow(ring_.committed());
    return got == Got::nothing && gone_ ? Got::gone : got;
}

// Reads on up to a position.
ObjectReader::Got ObjectReader::follow(uint64_t end) {
    for (uint64_t position = position_; position != end;) {
        RecordKind kind;
        switch (ring_.get(position, end, kind, record_, position)) {
        case RingView::Got::record:
            break;
        case RingView::Got::overtaken:
            must_start_over_ = true;
            return Got::again;
        case RingView::Got::noise:
            return Got::noise;
        }
        Got told = Got::nothing;
        if (kind == RecordKind::change) {
            told = tell();
        }
        position_.store(position, std::memory_order_relaxed);
        if (told != Got::nothing) {
            return told;
        }
    }
    return Got::nothing;
}

// Makes the change in `record_` the current one, where it is of an object that is read.
ObjectReader::Got ObjectReader::tell() {
    const std::string_view change = record_;
    const ObjectLine head = parse_object_line(first_line(change));
    if (head.result <= KIVO_END || !change.ends_with('\n')) {
        return Got::noise;
    }
    if (!is_read(head.name)) {
        return Got::nothing;
    }
    const auto known = known_.find(head.name);
    if (head.result == KIVO_OBJECT_DELETED && known != known_.end()) {
        known_bytes_ -= head.name.size();
        known_.erase(known);
    } else if (head.result != KIVO_OBJECT_DELETED && known == known_.end()) {
        // More than a publisher may have at once: it would grow this process without end.
        if (known_bytes_ + head.name.size() > OBJECT_TOTAL_MAX) {
            return Got::noise;
        }
        known_.emplace(head.name);
        known_bytes_ += head.name.size();
    }
    current_.swap(record_);
    return Got::change;
}

// Where the reader is new or was overtaken: makes a picture of the newest snapshot and what came
// after it, and gets it ready to be told.
ObjectReader::Got ObjectReader::start_over() {
    Picture picture;
    RecordKind kind;
    const uint64_t snapshot = ring_.snapshot();
    const uint64_t end = ring_.committed();
    uint64_t position = snapshot;
    RingView::Got got = ring_.get(snapshot, end, kind, record_, position);
    if (got == RingView::Got::record &&
        (kind != RecordKind::snapshot || !picture.load(record_, object_))) {
        return Got::noise;
    }
    while (got == RingView::Got::record && position != end) {
        const uint64_t begin = position;
        got = ring_.get(position, end, kind, record_, position);
        if (got == RingView::Got::record && kind == RecordKind::change &&
            is_read(parse_object_line(first_line(record_)).name) &&
            picture.apply(record_, begin) != Picture::Outcome::applied) {
            return Got::noise;
        }
    }
    if (got != RingView::Got::record) {
        return got == RingView::Got::noise ? Got::noise : Got::again;
    }

    std::vector<Picture::Text> texts = picture.texts();
    std::vector<std::string> pending;
    std::set<std::string, std::less<>> known;
    size_t known_bytes = 0;
    pending.reserve(texts.size() + known_.size());
    std::set<std::string_view> ended(known_.begin(), known_.end());
    std::for_each(texts.rbegin(), texts.rend(), [&](Picture::Text &text) {
        if (is_new_) {
            text.text.erase(0, 1); // It had nothing that could be truncated.
        } else if (text.birth < position_) {
            ended.erase(text.name);
        } else if (ended.contains(text.name)) {
            text.text[0] = '+'; // Not the object that the reader knows.
        }
        known_bytes += text.name.size();
        known.insert(std::move(text.name));
        pending.push_back(std::move(text.text));
    });
    for (const std::string_view name : ended) {
        pending.push_back("-@" + std::string(name) + "\n");
    }
    pending_ = std::move(pending);
    known_ = std::move(known);
    known_bytes_ = known_bytes;
    position_.store(position, std::memory_order_relaxed);
    is_new_ = false;
    must_start_over_ = false;
    return Got::nothing;
}

void ObjectReader::end_watch() {
    if (notification_.watches() && notification_.finish()) {
        gone_ = gone_ || !publisher_lives(ring_file_.get());
    }
}

bool ObjectReader::has_input() {
    gone_ = gone_ || !publisher_lives(ring_file_.get());
    return fetch() != Got::nothing;
}

int ObjectReader::arm(int signal) {
    const CancelDisabled no_cancel;
    const std::lock_guard guard(lock_);
    if (!ring_file_) {
        return fail(EBADF);
    }
    try {
        end_watch();
        if (has_input()) {
            return NOTIFY_INPUT;
        }
        if (!notification_.arm(ring_file_.get(), signal)) {
            return -1;
        }
        fence_at_the_bell();
        if (!has_input()) {
            return 0;
        }
        end_watch();
        return NOTIFY_INPUT;
    } catch (const std::bad_alloc &) {
        end_watch();
        return fail(ENOMEM);
    }
}

// Whoever was woken has what it waits for one system call later; the watch ends in the read that
// follows, so that those who do not wait cost the publisher nothing.
void ObjectReader::disarm() {
    const CancelDisabled no_cancel;
    const KeepErrno keep;
    const std::lock_guard guard(lock_);
    notification_.silence();
    if (notification_.watches()) {
        unsettled_.store(true, std::memory_order_relaxed);
    }
}

// The number stays taken, by something that cannot be read, until it is closed: otherwise the child
// would read, and close, a file of its own in place of what it believes to be its parent's.
void ObjectReader::abandon_in_child() {
    ring_.close();
    const UniqueFd placeholder(::open("/", O_PATH | O_CLOEXEC));
    if (placeholder && ::dup3(placeholder.get(), ring_file_.get(), O_CLOEXEC) >= 0) {
        ring_file_.release();
    }
    ring_file_.reset();
    notification_.abandon_in_child();
}

} // namespace vantro::platform
