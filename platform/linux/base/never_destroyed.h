#ifndef VANTRO_PLATFORM_LINUX_BASE_NEVER_DESTROYED_H
#define VANTRO_PLATFORM_LINUX_BASE_NEVER_DESTROYED_H

#include <new>

namespace vantro::platform {

// An object that is never destroyed: other threads may use it while the process ends. It lies in
// the library's own memory, which is unmapped when the library is unloaded; the resources of the
// object are then leaked.
template <typename Object>
class NeverDestroyed {
  public:
    NeverDestroyed() { new (memory_) Object; }
    NeverDestroyed(const NeverDestroyed &) = delete;
    NeverDestroyed &operator=(const NeverDestroyed &) = delete;

    Object *get() { return std::launder(reinterpret_cast<Object *>(memory_)); }

  private:
    alignas(Object) unsigned char memory_[sizeof(Object)];
};

} // namespace vantro::platform

#endif
