// The transport's wire format: static checks of the first 28 bytes of every message. The header is
// the public TransportHeader; this file does not define it again.
#ifndef VANTRO_TRANSPORT_WIRE_H
#define VANTRO_TRANSPORT_WIRE_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include <vantro/messaging.h>

namespace vantro::transport {

inline constexpr uint8_t transport_version = 2;
inline constexpr int32_t header_bytes = 28;
inline constexpr int32_t event_bytes = 16;
inline constexpr size_t pulse_bytes = 16;

// Capacity field of a put: its answer is fetched later, so any length is allowed.
inline constexpr uint32_t put_reply_length = 0x7fffffff;

// The first 16-bit word of a header of this kind: kind and version together.
constexpr uint16_t kind_word(int kind) {
    return static_cast<uint16_t>(transport_version << 8 | kind);
}

inline uint16_t first_word(const void *message) {
    uint16_t word;
    std::memcpy(&word, message, sizeof word);
    return word;
}

// Integers are sent in native order, and the format is little-endian.
static_assert(std::endian::native == std::endian::little);

static_assert(sizeof(TransportHeader) == header_bytes);
static_assert(offsetof(TransportHeader, kind) == 0);
static_assert(offsetof(TransportHeader, version) == 1);
static_assert(offsetof(TransportHeader, code) == 2);
static_assert(offsetof(TransportHeader, service_index) == 4);
static_assert(offsetof(TransportHeader, open_index) == 6);
static_assert(offsetof(TransportHeader, tag) == 8);
static_assert(offsetof(TransportHeader, send_length) == 12);
static_assert(offsetof(TransportHeader, reply_length) == 16);
static_assert(offsetof(TransportHeader, reserved0) == 20);
static_assert(offsetof(TransportHeader, reserved1) == 24);

static_assert(sizeof(ipc_event) == event_bytes);
static_assert(offsetof(ipc_event, value) == 8);

static_assert(sizeof(ipc_pulse) == pulse_bytes);
static_assert(offsetof(ipc_pulse, code) == 4);
static_assert(offsetof(ipc_pulse, value) == 8);
static_assert(offsetof(ipc_pulse, conn_id) == 12);

} // namespace vantro::transport

#endif
