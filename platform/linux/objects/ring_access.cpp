#include "platform/linux/objects/ring_access.h"

#include <sys/stat.h>
#include <sys/xattr.h>

#include <cstddef>
#include <cstdint>

namespace vantro::platform {

namespace {

// The kernel's form of an access control list, whose entries come in the order of their tags. Its
// numbers are little-endian, which are those of every supported host.
constexpr const char *acl_attribute = "system.posix_acl_access";
constexpr uint32_t acl_version = 2;
constexpr uint32_t no_id = UINT32_MAX;
enum : uint16_t {
    tag_publisher = 0x01,
    tag_user = 0x02,
    tag_own_group = 0x04,
    tag_group = 0x08,
    tag_mask = 0x10,
    tag_others = 0x20
};
constexpr uint16_t may_read = 4;

struct AclEntry {
    uint16_t tag;
    uint16_t permissions;
    uint32_t id;
};
static_assert(sizeof(AclEntry) == 8);

struct Acl {
    uint32_t version = acl_version;
    AclEntry entries[6] = {};
};
static_assert(sizeof(Acl) == sizeof(uint32_t) + 6 * sizeof(AclEntry));

} // namespace

bool grant_reading(int ring_file, const object_readers &readers) {
    struct stat status;
    if (::fstat(ring_file, &status) != 0) {
        return false;
    }
    const bool own_user = readers.uid == OBJECT_READERS_OWN || readers.uid == status.st_uid;
    const bool own_group = readers.gid == OBJECT_READERS_OWN || readers.gid == status.st_gid;
    const mode_t mode = (readers.mode & 0444) | S_IRUSR;
    if ((own_user && own_group) || (readers.mode & 0444) == 0444) {
        return ::fchmod(ring_file, mode) == 0;
    }

    const auto user = static_cast<uint16_t>(readers.mode >> 6 & may_read);
    const auto group = static_cast<uint16_t>(readers.mode >> 3 & may_read);
    const auto others = static_cast<uint16_t>(readers.mode & may_read);
    Acl acl;
    size_t count = 0;
    const auto add = [&](uint16_t tag, uint16_t permissions, uint32_t id) {
        acl.entries[count++] = {tag, permissions, id};
    };
    add(tag_publisher, may_read, no_id);
    if (!own_user) {
        add(tag_user, user, readers.uid);
    }
    // If the service's group differs, the group of the file's owner counts as others.
    add(tag_own_group, own_group ? group : others, no_id);
    if (!own_group) {
        add(tag_group, group, readers.gid);
    }
    add(tag_mask, may_read, no_id);
    add(tag_others, others, no_id);
    const size_t size = offsetof(Acl, entries) + count * sizeof(AclEntry);
    return ::fchmod(ring_file, S_IRUSR) == 0 &&
           ::fsetxattr(ring_file, acl_attribute, &acl, size, 0) == 0;
}

} // namespace vantro::platform
