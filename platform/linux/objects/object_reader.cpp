#include "platform/linux/objects/object_reader.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/linux/objects/object_directory.h"
#include "platform/linux/objects/ring_words.h"
#include "platform/linux/runtime/runtime_directory.h"
#include "platform/portable/change_line.h"
#include "platform/portable/guards.h"
#include "platform/portable/object_state.h"

namespace vantro::platform {

namespace {

// A publisher writes at least a quarter of a megabyte before it overwrites the snapshot that a
// reader copies. A reader that is overtaken this often in a row tries again at its next call.
constexpr int starts_max = 16;

// The watch for waits is removed after this many changes were read without a wait.
constexpr unsigned kept_watch_changes = 64;

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
    auto reader =
        open_in_either([relative](RuntimeRoot root) { return open_below(root, relative); });
    if (reader) {
        reader->relative_ = relative;
    }
    return reader;
}

std::unique_ptr<ObjectReader> ObjectReader::open_below(RuntimeRoot root,
                                                       std::string_view relative) {
    const Place place = find_place(relative, root);
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
    // O_NONBLOCK: a pipe in the ring's place would block the open.
    reader->ring_file_.reset(
        ::openat(place.directory.get(), ring_name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!reader->ring_file_) {
        // ELOOP and ENXIO: a link or a socket is in the ring's place.
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
    const MutexLock guard(lock_);
    if (!ring_file_) {
        return fail(EBADF);
    }
    try {
        if (!notification_.armed()) {
            end_armed_watch();
        }
        switch (fetch()) {
        case Got::change:
            break;
        case Got::nothing:
        case Got::again:
            return 0;
        case Got::gone:
            return fail(ESTALE);
        case Got::corrupt:
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
    if (++read_without_waiting_ == kept_watch_changes) {
        stop_watching(waiter_);
    }
    unsettled_.store(must_start_over_ || gone_ || !pending_.empty(), std::memory_order_relaxed);
    return static_cast<ssize_t>(given);
}

ObjectReader::Got ObjectReader::fetch() {
    Got got = Got::corrupt;
    if (!current_.empty()) {
        got = Got::change;
    } else if (!is_corrupt_) {
        const uint64_t before = ring_.committed();
        got = Got::again;
        for (int start = 0; got == Got::again && start < starts_max; ++start) {
            got = find_next();
        }
        // A publisher overtakes only by committing. If it did not commit, another attempt would
        // have the same result.
        if (got == Got::again && ring_.committed() == before) {
            got = Got::corrupt;
        }
        is_corrupt_ = got == Got::corrupt;
    }
    unsettled_.store(got != Got::nothing, std::memory_order_relaxed);
    return got;
}

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
    // The next call reads text that is appended after this, so that a busy publisher cannot keep a
    // reader here.
    gone_ = gone_ || ring_.retired();
    const Got got = follow(ring_.committed());
    return got == Got::nothing && gone_ ? Got::gone : got;
}

ObjectReader::Got ObjectReader::follow(uint64_t end) {
    for (uint64_t position = position_; position != end;) {
        RecordKind kind;
        switch (ring_.get(position, end, kind, record_, position)) {
        case RingView::Got::record:
            break;
        case RingView::Got::overtaken:
            must_start_over_ = true;
            return Got::again;
        case RingView::Got::corrupt:
            return Got::corrupt;
        }
        const Got got = kind == RecordKind::change ? take_change() : Got::nothing;
        position_.store(position, std::memory_order_relaxed);
        if (got != Got::nothing) {
            return got;
        }
    }
    return Got::nothing;
}

ObjectReader::Got ObjectReader::take_change() {
    const std::string_view change = record_;
    const ObjectLine head = parse_object_line(first_line(change));
    if (head.result <= KIVO_END || !change.ends_with('\n')) {
        return Got::corrupt;
    }
    if (!is_read(head.name)) {
        return Got::nothing;
    }
    const auto known = known_.find(head.name);
    if (head.result == KIVO_OBJECT_DELETED && known != known_.end()) {
        known_bytes_ -= head.name.size();
        known_.erase(known);
    } else if (head.result != KIVO_OBJECT_DELETED && known == known_.end()) {
        // A publisher may not have more than this; without the check it could make this process
        // grow without limit.
        if (known_bytes_ + head.name.size() > OBJECT_TOTAL_MAX) {
            return Got::corrupt;
        }
        known_.emplace(head.name);
        known_bytes_ += head.name.size();
    }
    current_.swap(record_);
    return Got::change;
}

ObjectReader::Got ObjectReader::start_over() {
    ObjectState state;
    uint64_t position = 0;
    const Got got = load_state(state, position);
    if (got == Got::nothing) {
        give_state(state);
        position_.store(position, std::memory_order_relaxed);
        is_new_ = false;
        must_start_over_ = false;
    }
    return got;
}

ObjectReader::Got ObjectReader::load_state(ObjectState &state, uint64_t &position) {
    RecordKind kind;
    const uint64_t snapshot = ring_.snapshot();
    const uint64_t end = ring_.committed();
    position = snapshot;
    RingView::Got got = ring_.get(snapshot, end, kind, record_, position);
    if (got == RingView::Got::record &&
        (kind != RecordKind::snapshot || !state.load(record_, object_))) {
        return Got::corrupt;
    }
    while (got == RingView::Got::record && position != end) {
        const uint64_t begin = position;
        got = ring_.get(position, end, kind, record_, position);
        if (got == RingView::Got::record && kind == RecordKind::change &&
            is_read(parse_object_line(first_line(record_)).name) &&
            state.apply(record_, begin) != ObjectState::Outcome::applied) {
            return Got::corrupt;
        }
    }
    if (got != RingView::Got::record) {
        return got == RingView::Got::corrupt ? Got::corrupt : Got::again;
    }
    return Got::nothing;
}

void ObjectReader::give_state(const ObjectState &state) {
    std::vector<ObjectState::Text> texts = state.texts();
    std::vector<std::string> pending;
    std::set<std::string, std::less<>> known;
    size_t known_bytes = 0;
    pending.reserve(texts.size() + known_.size());
    std::set<std::string_view> ended(known_.begin(), known_.end());
    std::for_each(texts.rbegin(), texts.rend(), [&](ObjectState::Text &text) REQUIRES(lock_) {
        if (is_new_) {
            text.text.erase(0, 1); // The first text of an object: there is nothing to truncate.
        } else if (text.birth < position_) {
            ended.erase(text.name);
        } else if (ended.contains(text.name)) {
            text.text[0] = '+'; // Another object of that name, created after the known one ended.
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
}

// The number stays taken, by a descriptor that cannot be read, until it is closed. Otherwise the
// child could open a file under this number, and then read or close it as its parent's reader.
void ObjectReader::abandon_in_child() {
    lock_.assume_held(); // held by a thread that the child does not have, or not held
    ring_.close();
    const UniqueFd placeholder(::open("/", O_PATH | O_CLOEXEC));
    if (placeholder && ::dup3(placeholder.get(), ring_file_.get(), O_CLOEXEC) >= 0) {
        ring_file_.release();
    }
    ring_file_.reset();
    notification_.abandon_in_child();
    poll_.abandon_in_child();
    return_.close();
    bell_.abandon_in_child();
    waiter_ = {};
}

} // namespace vantro::platform
