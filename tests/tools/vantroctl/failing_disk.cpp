// Loaded before the service's own libraries: while the file that FAILING_DISK names exists, reads
// of the catalogue's file fail as those of a broken disk do.
#include <cerrno>
#include <cstdlib>
#include <string>

#include <dlfcn.h>
#include <unistd.h>

namespace {

bool fails(int descriptor) {
    const char *fault = std::getenv("FAILING_DISK");
    if (!fault || access(fault, F_OK) != 0) {
        return false;
    }
    char path[4096];
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    const ssize_t length = readlink(link.c_str(), path, sizeof path);
    return length > 0 && std::string(path, static_cast<size_t>(length)).find("/catalogue.db") !=
                             std::string::npos;
}

template <class Function, class... Arguments>
ssize_t read_or_fail(const char *name, int descriptor, Arguments... arguments) {
    if (fails(descriptor)) {
        errno = EIO;
        return -1;
    }
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name))(descriptor, arguments...);
}

} // namespace

extern "C" {

ssize_t pread64(int descriptor, void *buffer, size_t size, off64_t offset) {
    return read_or_fail<decltype(&pread64)>("pread64", descriptor, buffer, size, offset);
}

ssize_t read(int descriptor, void *buffer, size_t size) {
    return read_or_fail<decltype(&read)>("read", descriptor, buffer, size);
}
}
