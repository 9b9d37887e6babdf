#include "platform/linux/messages/wire.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "platform/portable/guards.h"

namespace vantro::platform {

namespace {

// One entry for the frame in front, and, at a receiver, one after the parts for bytes that do not
// fit.
constexpr int parts_max = IOV_MAX - 2;

constexpr int memory_file_seals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE;

// Room for descriptors beside a packet.
template <int Count>
union ControlBuffer {
    struct cmsghdr align;
    char bytes[CMSG_SPACE(sizeof(int) * Count)];
};

// Advances a vector past bytes that are done.
void skip(struct iovec *&parts, int &count, size_t done) {
    while (count > 0 && done >= parts->iov_len) {
        done -= parts->iov_len;
        ++parts;
        --count;
    }
    if (count > 0) {
        parts->iov_base = static_cast<char *>(parts->iov_base) + done;
        parts->iov_len -= done;
    }
}

} // namespace

bool PartList::assign(const struct iovec *parts, int count) {
    if (count < 0 || count > parts_max) {
        errno = EINVAL;
        return false;
    }
    if (count > IPC_STACK_PARTS) {
        heap_.reset(new (std::nothrow) struct iovec[static_cast<size_t>(count) + 2]);
        if (!heap_) {
            errno = ENOMEM;
            return false;
        }
    }
    count_ = count;
    length_ = 0;
    for (int i = 0; i < count; ++i) {
        callers()[i] = parts[i];
        if (parts[i].iov_len > IPC_MESSAGE_MAX || length_ + parts[i].iov_len > IPC_MESSAGE_MAX) {
            errno = EMSGSIZE;
            return false;
        }
        length_ += parts[i].iov_len;
    }
    return true;
}

bool PartList::keep_descriptor() {
    spare_.reset(::eventfd(0, EFD_CLOEXEC));
    return static_cast<bool>(spare_);
}

bool PartList::give_descriptor_back(int socket) {
    if (!spare_) {
        return true;
    }
    char first; // first byte of the packet, which stays in the socket with its descriptor
    const bool arrived = ::recv(socket, &first, sizeof first, MSG_PEEK) >= 0;
    const KeepErrno keep;
    spare_.reset();
    return arrived;
}

ssize_t send_packet(int socket, const struct iovec *parts, int count, int descriptor, int flags) {
    struct msghdr message = {};
    message.msg_iov = const_cast<struct iovec *>(parts);
    message.msg_iovlen = static_cast<size_t>(count);
    ControlBuffer<1> control;
    if (descriptor >= 0) {
        std::memset(control.bytes, 0, sizeof control.bytes); // its padding is sent too
        message.msg_control = control.bytes;
        message.msg_controllen = sizeof control.bytes;
        struct cmsghdr *header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(sizeof(int));
        std::memcpy(CMSG_DATA(header), &descriptor, sizeof descriptor);
    }
    return ::sendmsg(socket, &message, flags | MSG_NOSIGNAL);
}

ssize_t receive_packet(int socket, struct iovec *parts, int count, int flags, Arrival &arrival,
                       bool with_descriptors) {
    struct msghdr message = {};
    message.msg_iov = parts;
    message.msg_iovlen = static_cast<size_t>(count);
    ControlBuffer<packet_descriptors_max> control;
    message.msg_control = control.bytes;
    message.msg_controllen = with_descriptors ? sizeof control.bytes : 0;
    const ssize_t received = ::recvmsg(socket, &message, flags | MSG_CMSG_CLOEXEC);
    if (received < 0) {
        return -1;
    }
    for_each_descriptor(message, [&arrival](int descriptor) {
        ForeignFd next(descriptor);
        arrival.too_many = static_cast<bool>(arrival.descriptor);
        if (!arrival.too_many) {
            arrival.descriptor = std::move(next);
        }
    });
    arrival.descriptor_lost = !arrival.descriptor && (message.msg_flags & MSG_CTRUNC);
    return received;
}

int check_packet_socket(int descriptor) {
    int domain = 0;
    int type = 0;
    socklen_t length = sizeof domain;
    if (::getsockopt(descriptor, SOL_SOCKET, SO_DOMAIN, &domain, &length) != 0 ||
        ::getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &(length = sizeof type)) != 0) {
        return errno == ENOTSOCK ? ECONNRESET : errno;
    }
    return domain == AF_UNIX && type == SOCK_SEQPACKET ? 0 : ECONNRESET;
}

UniqueFd make_memory_file(const struct iovec *parts, int count, size_t length) {
    UniqueFd file(::memfd_create("vantro-message", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (!file) {
        return file;
    }
    PartList rest;
    if (!rest.assign(parts, count)) {
        return UniqueFd();
    }
    struct iovec *next = rest.callers();
    int left = count;
    size_t written = 0;
    while (written < length) {
        const ssize_t done = ::writev(file.get(), next, left);
        if (done < 0 && errno == EINTR) {
            continue;
        }
        if (done <= 0) {
            errno = done == 0 ? ENOSPC : errno;
            return UniqueFd();
        }
        written += static_cast<size_t>(done);
        skip(next, left, static_cast<size_t>(done));
    }
    if (::fcntl(file.get(), F_ADD_SEALS, memory_file_seals) != 0) {
        return UniqueFd();
    }
    return file;
}

int check_sealed_file(int file, int wanted_seals, size_t &length) {
    const int found = ::fcntl(file, F_GET_SEALS);
    if (found < 0 || (found & wanted_seals) != wanted_seals) {
        return ECONNRESET;
    }
    struct stat status;
    if (::fstat(file, &status) != 0) {
        return errno;
    }
    length = static_cast<size_t>(std::max<off_t>(status.st_size, 0));
    return 0;
}

int check_memory_file(int file, size_t length) {
    size_t found = 0;
    const int error = check_sealed_file(file, memory_file_seals, found);
    return error == 0 && found < length ? ECONNRESET : error;
}

ssize_t read_memory_file(int file, size_t offset, const struct iovec *parts, int count,
                         size_t limit) {
    PartList rest;
    if (!rest.assign(parts, count)) {
        return -1;
    }
    struct iovec *next = rest.callers();
    int left = count;
    size_t wanted = std::min(rest.length(), limit);
    size_t placed = 0;
    while (placed < wanted && left > 0) {
        struct iovec *last = next;
        int used = 0;
        size_t room = 0;
        while (used < left && room < wanted - placed) {
            room += last->iov_len;
            ++last;
            ++used;
        }
        const size_t over = room > wanted - placed ? room - (wanted - placed) : 0;
        next[used - 1].iov_len -= over;
        const ssize_t done = ::preadv(file, next, used, static_cast<off_t>(offset + placed));
        if (done < 0 && errno == EINTR) {
            next[used - 1].iov_len += over;
            continue;
        }
        if (done <= 0) {
            return done < 0 ? -1 : static_cast<ssize_t>(placed);
        }
        next[used - 1].iov_len += over;
        placed += static_cast<size_t>(done);
        skip(next, left, static_cast<size_t>(done));
    }
    return static_cast<ssize_t>(placed);
}

size_t gather(void *target, size_t length, const struct iovec *parts, int count) {
    size_t done = 0;
    for (int i = 0; i < count && done < length; ++i) {
        const size_t step = std::min(parts[i].iov_len, length - done);
        if (step > 0) {
            std::memcpy(static_cast<char *>(target) + done, parts[i].iov_base, step);
        }
        done += step;
    }
    return done;
}

size_t scatter(const struct iovec *parts, int count, const void *source, size_t length) {
    size_t done = 0;
    for (int i = 0; i < count && done < length; ++i) {
        const size_t step = std::min(parts[i].iov_len, length - done);
        if (step > 0) {
            std::memcpy(parts[i].iov_base, static_cast<const char *>(source) + done, step);
        }
        done += step;
    }
    return done;
}

} // namespace vantro::platform
