#include "platform/linux/objects/ring.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/linux/objects/ring_words.h"

namespace vantro::platform {

bool RingWriter::create(int file) {
    int error = EINTR;
    while (error == EINTR) { // tmpfs returns EINTR even for handlers with SA_RESTART
        error = ::posix_fallocate(file, 0, ring_file_bytes);
    }
    if (error != 0) {
        errno = error;
        return false;
    }
    mapping_ = Mapping(file, ring_file_bytes, PROT_READ | PROT_WRITE);
    if (!mapping_) {
        return false;
    }
    header()->magic = ring_magic;
    header()->version = ring_version;
    header()->capacity = ring_capacity;
    append(RecordKind::snapshot, {});
    return true;
}

void RingWriter::append(RecordKind kind, std::string_view text) {
    const uint64_t begin = tail_;
    const RecordHead head{static_cast<uint32_t>(text.size()), kind};
    tail_ += record_bytes(text.size());
    __atomic_store_n(&header()->reserved, tail_, __ATOMIC_RELAXED);
    fence_after_reserving();
    store_words(mapping_.data(), begin, &head, sizeof head);
    store_words(mapping_.data(), begin + sizeof head, text.data(), text.size());
    __atomic_store_n(&header()->committed, tail_, __ATOMIC_RELEASE);
    if (kind == RecordKind::snapshot) {
        snapshot_ = begin;
        __atomic_store_n(&header()->snapshot, begin, __ATOMIC_RELEASE);
    }
}

void RingWriter::retire() {
    __atomic_store_n(&header()->retired, 1, __ATOMIC_RELEASE);
}

void RingWriter::ring_bell(int file) {
    const char stroke = 1;
    fence_at_the_bell();
    // Cannot fail for lack of space: the byte is allocated already.
    [[maybe_unused]] const ssize_t written =
        ::pwrite(file, &stroke, sizeof stroke, offsetof(RingHeader, bell));
}

void RingWriter::retire_file(int file) {
    const uint32_t retired = 1;
    [[maybe_unused]] const ssize_t written =
        ::pwrite(file, &retired, sizeof retired, offsetof(RingHeader, retired));
}

bool RingView::open(int file) {
    struct stat status;
    if (::fstat(file, &status) != 0) {
        return false;
    }
    if (!S_ISREG(status.st_mode) || status.st_size < static_cast<off_t>(ring_file_bytes)) {
        errno = EBADMSG;
        return false;
    }
    mapping_ = Mapping(file, ring_file_bytes, PROT_READ);
    if (!mapping_) {
        return false;
    }
    if (__atomic_load_n(&header()->magic, __ATOMIC_RELAXED) != ring_magic ||
        __atomic_load_n(&header()->version, __ATOMIC_RELAXED) != ring_version ||
        __atomic_load_n(&header()->capacity, __ATOMIC_RELAXED) != ring_capacity) {
        mapping_.reset();
        errno = EBADMSG;
        return false;
    }
    return true;
}

uint64_t RingView::committed() const {
    return __atomic_load_n(&header()->committed, __ATOMIC_ACQUIRE);
}

uint64_t RingView::snapshot() const {
    return __atomic_load_n(&header()->snapshot, __ATOMIC_ACQUIRE);
}

bool RingView::retired() const {
    return __atomic_load_n(&header()->retired, __ATOMIC_ACQUIRE) != 0;
}

bool RingView::overtaken(uint64_t position) const {
    fence_after_copying();
    return __atomic_load_n(&header()->reserved, __ATOMIC_RELAXED) - position > ring_capacity;
}

RingView::Got RingView::get(uint64_t position, uint64_t end, RecordKind &kind, std::string &text,
                            uint64_t &next) const {
    const uint64_t available = end - position;
    if (position % record_alignment != 0 || end % record_alignment != 0 || position >= end) {
        return Got::corrupt;
    }
    if (available > ring_capacity) {
        return Got::overtaken;
    }
    RecordHead head;
    load_words(mapping_.data(), position, &head, sizeof head);
    if (overtaken(position)) {
        return Got::overtaken;
    }
    if ((head.kind != RecordKind::change && head.kind != RecordKind::snapshot) ||
        head.length > record_length_max(head.kind) || record_bytes(head.length) > available) {
        return Got::corrupt;
    }
    text.resize(head.length);
    load_words(mapping_.data(), position + sizeof head, text.data(), head.length);
    if (overtaken(position)) {
        return Got::overtaken;
    }
    kind = head.kind;
    next = position + record_bytes(head.length);
    return Got::record;
}

} // namespace vantro::platform
