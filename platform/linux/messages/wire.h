// The data in the sockets: frames on lanes, fixed records on control sockets, and descriptors with
// either.
#ifndef VANTRO_PLATFORM_LINUX_MESSAGES_WIRE_H
#define VANTRO_PLATFORM_LINUX_MESSAGES_WIRE_H

#include <sys/socket.h>
#include <sys/uio.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include <vantro/platform/limits.h>

#include "platform/linux/base/unique_fd.h"
#include "platform/linux/messages/foreign_fd.h"

namespace vantro::platform {

// The header of every message and reply on a lane.
struct Frame {
    uint32_t length = 0; // bytes of the message, wherever they are
    int32_t status = 0;  // in a reply: status, or the error number
    uint32_t flags = 0;
    uint32_t processor = 0; // the sender's processor plus 1, or 0 if it does not matter
};
static_assert(sizeof(Frame) == 16);

enum FrameFlag : uint32_t {
    frame_memory_file = 1, // the bytes are in a sealed memory file, which is attached
    frame_error = 2,       // an error reply
    frame_answer_file = 4  // in a reply: the bytes are in the lane's answer file (answer_file.h),
                           // which is attached if it is new
};

// One record on a control socket. A client has at most one request unanswered. Descriptors go from
// the server to the client only.
struct ControlRecord {
    uint32_t kind = 0;
    int32_t value = 0;
};
static_assert(sizeof(ControlRecord) == 8);

enum ControlKind : uint32_t {
    control_lane_request = 1,  // client: requests another lane
    control_pulse_request = 2, // client: requests pulses; value: its pulse connection
    control_lane_granted = 3,  // server: attaches the lane's far end; value: LaneGrant
    control_pulse_granted = 4, // server: attaches the end for the pulses; the same value
    control_refused = 5,       // server: value is an error number
    control_words_request = 6, // client: requests the connection's words (lane_words.h)
    control_words_granted = 7, // server: attaches their file
    control_watch_lane = 8     // client: sleeps until an answer on the lane with this index; see
                               // LaneWords::unwatched. Gets no reply.
};

enum LaneGrant : int32_t {
    lane_hands_over = 1,    // the server wakes a thread on the sender's processor
    lane_index_shift = 8,   // above these bits: the lane's index in the server,
    lane_index_mask = 0xff, // of this width
    wire_version_shift = 16 // above these bits: the server's wire_version
};

// The version of the formats in this file, transport/wire.h and objects/ring.h: increment it with
// every incompatible change. A client compares it before its first message, since the first lane
// comes without a request. So neither side waits for the other in vain. Servers from before
// versions have 0 there.
inline constexpr int wire_version = 1;

// A vector with room for one part before and one after the caller's parts. Needs heap memory only
// above IPC_STACK_PARTS.
class PartList {
  public:
    // False with errno EINVAL, EMSGSIZE or ENOMEM if the caller's vector cannot be used.
    bool assign(const struct iovec *parts, int count);

    // Places a part in front of the caller's.
    void set_front(void *base, size_t length) { all()[0] = {base, length}; }
    // Places a part after the caller's.
    void set_back(void *base, size_t length) { all()[count_ + 1] = {base, length}; }

    struct iovec *with_front() { return all(); }
    struct iovec *callers() { return all() + 1; }
    int count() const { return count_; }
    // Bytes of the caller's parts.
    size_t length() const { return length_; }

    // Reserves one descriptor for a file that may be attached to a reply. @return false with errno.
    bool keep_descriptor();
    // Waits for the packet, then frees the reserved descriptor, if there is one. @return false with
    // errno.
    bool give_descriptor_back(int socket);

  private:
    struct iovec *all() { return heap_ ? heap_.get() : stack_; }

    struct iovec stack_[IPC_STACK_PARTS + 2];
    std::unique_ptr<struct iovec[]> heap_;
    int count_ = 0;
    size_t length_ = 0;
    UniqueFd spare_;
};

// The descriptors that came with a packet.
struct Arrival {
    ForeignFd descriptor;
    bool descriptor_lost = false; // this process had no descriptor free for it
    bool too_many = false;        // there were more descriptors; these were closed
};

// Calls a function for each descriptor that came with a message.
template <typename Function>
void for_each_descriptor(struct msghdr &message, Function function) {
    for (struct cmsghdr *header = CMSG_FIRSTHDR(&message); header;
         header = CMSG_NXTHDR(&message, header)) {
        if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS) {
            continue;
        }
        for (size_t at = CMSG_LEN(0); at + sizeof(int) <= header->cmsg_len; at += sizeof(int)) {
            int descriptor;
            std::memcpy(&descriptor, reinterpret_cast<const char *>(header) + at,
                        sizeof descriptor);
            function(descriptor);
        }
    }
}

// Sends one packet. @return bytes sent, or -1 with errno. Never raises SIGPIPE.
ssize_t send_packet(int socket, const struct iovec *parts, int count, int descriptor, int flags);

// Receives one packet. @return bytes, 0 at the end, or -1.
// @param with_descriptors if false, the kernel closes the descriptors that came with the packet,
//        and `arrival` says that they are lost.
ssize_t receive_packet(int socket, struct iovec *parts, int count, int flags, Arrival &arrival,
                       bool with_descriptors = true);

// Checks that a descriptor passed by a server is a packet socket. @return 0, ECONNRESET if it is
// not, or the error for which that is unknown.
int check_packet_socket(int descriptor);

// A sealed memory file that holds the parts. Empty with errno on failure.
UniqueFd make_memory_file(const struct iovec *parts, int count, size_t length);

// Checks that a peer's file has these seals. `length` receives its length. @return 0, ECONNRESET if
// it has not, or the error for which that is unknown.
int check_sealed_file(int file, int wanted_seals, size_t &length);

// Checks that a peer's memory file may be read: sealed so that its bytes and size cannot change,
// and at least `length` long. Without this check a read could block on a file of the peer's choice.
// @return the result of check_sealed_file().
int check_memory_file(int file, size_t length);

// Reads from a file at an offset into parts. @return bytes placed, or -1.
ssize_t read_memory_file(int file, size_t offset, const struct iovec *parts, int count,
                         size_t limit);

// Copies `length` bytes out of, or into, a vector. @return bytes copied.
size_t gather(void *target, size_t length, const struct iovec *parts, int count);
size_t scatter(const struct iovec *parts, int count, const void *source, size_t length);

} // namespace vantro::platform

#endif
