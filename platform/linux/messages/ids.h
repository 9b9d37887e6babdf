// The number spaces of the contract, which their top bits distinguish: descriptors of the host are
// below all of them, so that no number of one kind is valid as another kind.
#ifndef VANTRO_PLATFORM_LINUX_MESSAGES_IDS_H
#define VANTRO_PLATFORM_LINUX_MESSAGES_IDS_H

#include <cstdint>

#include <vantro/platform/limits.h>

namespace vantro::platform {

enum class NumberKind : int {
    descriptor = 0x00000000,
    channel = 0x10000000,
    name_connection = 0x20000000,
    pulse_connection = 0x30000000,
    client_id = 0x40000000
};

constexpr int number_mask = 0x0fffffff;

constexpr NumberKind kind_of(int number) {
    return number < 0 ? NumberKind::descriptor : static_cast<NumberKind>(number & ~number_mask);
}
constexpr int make_number(NumberKind kind, int value) {
    return static_cast<int>(kind) | (value & number_mask);
}
constexpr int value_of(int number) {
    return number & number_mask;
}

// A receive id names the client by its serial, the lane, and one exchange on that lane, in 31
// bits. Serials are assigned round robin, so that an id of a client that has gone leads to no
// client, unless a full round has passed since.
struct ReceiveId {
    static constexpr int exchange_bits = 9;
    static constexpr int lane_bits = 6;
    static constexpr uint32_t exchange_mask = (1u << exchange_bits) - 1;

    uint32_t serial = 0; // 1 to IPC_CONNECTIONS_MAX
    uint32_t lane = 0;
    uint32_t exchange = 0;

    int pack() const {
        return static_cast<int>(serial << (lane_bits + exchange_bits) | lane << exchange_bits |
                                exchange);
    }
    static ReceiveId unpack(int id) {
        const auto bits = static_cast<uint32_t>(id);
        return {bits >> (lane_bits + exchange_bits),
                bits >> exchange_bits & ((1u << lane_bits) - 1), bits & exchange_mask};
    }
};
static_assert(IPC_LANES_MAX <= 1 << ReceiveId::lane_bits);
static_assert(IPC_CONNECTIONS_MAX < 1 << (31 - ReceiveId::lane_bits - ReceiveId::exchange_bits));

} // namespace vantro::platform

#endif
