// The ring file: change texts of one publisher, which maps it for writing; readers map it for
// reading.
//
// A position is the 64-bit number of bytes appended since the ring was made; its place in the file
// is the position modulo the capacity. A record is two 32-bit words, its length in bytes and its
// kind, and the text, padded to a multiple of 8. A record may wrap from the ring's end to its
// start.
//
// Invariants
//  - The publisher raises `reserved` to a record's end before it writes a byte of it, and
//    `committed` after the last. So a record that ends at or below `committed` is whole, even if
//    the publisher died while it wrote the next one.
// - Bytes from `reserved - ring_capacity` on are valid; earlier ones may be overwritten at any
//   time. A reader copies first, and then reads `reserved`: the copy is valid if its position is
//   still valid.
//  - `snapshot` is the position of a snapshot record, which is not overwritten before there is a
//    newer one: a snapshot is due at most `snapshot_distance_max` after the last, and that
//    distance, a snapshot and a record together fit the ring. A snapshot holds the state of all
//    objects after the records before it, and the position at which each object was created. From
//    that position an overtaken reader learns that an object has ended even if there is a new one
//    of the same name.
//
// Every word of the text is stored and loaded atomically, with relaxed order: a reader may copy
// bytes that are being overwritten, and detects this afterwards.
#ifndef VANTRO_PLATFORM_LINUX_OBJECTS_RING_H
#define VANTRO_PLATFORM_LINUX_OBJECTS_RING_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <vantro/platform/limits.h>

#include "platform/linux/base/mapping.h"
#include "platform/portable/object_state.h"

namespace vantro::platform {

constexpr size_t ring_capacity = 1024 * 1024;
// A snapshot is due when this many times its own bytes were appended since the last one. So
// snapshots add at most an eighth to the cost of publishing, and a reader that starts from a
// snapshot has few changes to read.
constexpr size_t snapshot_share = 8;
constexpr size_t snapshot_distance_min = 16 * 1024;
constexpr size_t snapshot_distance_max = ring_capacity / 2;

// The head of the file. Positions and flags are accessed atomically only.
struct RingHeader {
    uint64_t magic;
    uint32_t version;
    uint32_t capacity;
    uint8_t unused[48];
    uint64_t reserved; // at 64: shares a cache line with the next three
    uint64_t committed;
    uint64_t snapshot;
    uint32_t retired; // 1: no more changes will come
    uint8_t unused_too[36];
    uint8_t bell; // at 128: written with a system call, which wakes the watchers of the file
};
static_assert(offsetof(RingHeader, reserved) == 64 && offsetof(RingHeader, retired) == 88 &&
              offsetof(RingHeader, bell) == 128);
// Readers map the file read-only, where a load that the compiler makes of a locked write would
// fault.
static_assert(__atomic_always_lock_free(sizeof(uint64_t), nullptr));

constexpr uint64_t ring_magic = 0x474e4952544e4156; // "VANTRING"
constexpr uint32_t ring_version = 2;
constexpr size_t ring_data_offset = 4096;
constexpr size_t ring_file_bytes = ring_data_offset + ring_capacity;

enum class RecordKind : uint32_t { change = 1, snapshot = 2 };

struct RecordHead {
    uint32_t length;
    RecordKind kind;
};
constexpr size_t record_alignment = 8;
static_assert(sizeof(RecordHead) == record_alignment);

constexpr size_t record_bytes(size_t length) {
    return sizeof(RecordHead) +
           (length + record_alignment - 1) / record_alignment * record_alignment;
}
constexpr size_t snapshot_length_max = OBJECT_TOTAL_MAX + ObjectState::births_bytes_max;
constexpr size_t record_length_max(RecordKind kind) {
    return kind == RecordKind::snapshot ? snapshot_length_max : OBJECT_CHANGE_MAX;
}
static_assert(snapshot_distance_max + record_bytes(snapshot_length_max) +
                  record_bytes(OBJECT_CHANGE_MAX) <=
              ring_capacity - ring_capacity / 8);

// The publisher's side. One thread at a time.
class RingWriter {
  public:
    // Makes an empty file a ring: allocates its space, and appends an empty snapshot. @return false
    // with errno on failure.
    bool create(int file);

    // Whether a snapshot, of that many bytes, must come before a change of that length.
    bool snapshot_due(size_t snapshot_bytes, size_t length) const {
        const size_t distance = std::clamp(snapshot_share * snapshot_bytes, snapshot_distance_min,
                                           snapshot_distance_max);
        return tail_ + record_bytes(length) - snapshot_ > distance;
    }
    // The position of the next record.
    uint64_t tail() const { return tail_; }
    void append(RecordKind kind, std::string_view text);
    void retire();
    // In a child of fork. A mapping keeps the file open, and with it the lock that shows that the
    // publisher is alive.
    void abandon_in_child() { mapping_.reset(); }
    // Wakes the watchers of the file.
    static void ring_bell(int file);

    // Marks the ring of an earlier publisher. Its contents are not trusted.
    static void retire_file(int file);

  private:
    RingHeader *header() { return reinterpret_cast<RingHeader *>(mapping_.data()); }

    Mapping mapping_;
    uint64_t tail_ = 0;
    uint64_t snapshot_ = 0;
};

// A reader's side. Hands out checked copies, and keeps no state.
class RingView {
  public:
    // Maps a ring. @return false with errno on failure: EBADMSG if the file is not a ring.
    bool open(int file);

    uint64_t committed() const;
    uint64_t snapshot() const;
    bool retired() const;

    enum class Got { record, overtaken, corrupt };
    // Copies the record at a position below `end`, which committed() returned.
    // @param text replaced by the record's text. May throw std::bad_alloc.
    // @param next receives the position after the record.
    Got get(uint64_t position, uint64_t end, RecordKind &kind, std::string &text,
            uint64_t &next) const;

    // In a child of fork, and at the end.
    void close() { mapping_.reset(); }

  private:
    const RingHeader *header() const {
        return reinterpret_cast<const RingHeader *>(mapping_.data());
    }
    bool overtaken(uint64_t position) const;

    Mapping mapping_;
};

} // namespace vantro::platform

#endif
