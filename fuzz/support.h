// What the fuzzers share.
#ifndef VANTRO_FUZZ_SUPPORT_H
#define VANTRO_FUZZ_SUPPORT_H

#include <cstdlib>
#include <filesystem>
#include <string>

namespace vantro::fuzz {

// What must hold whatever the input is.
inline void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

// The runtime directory for the life of the program: in memory if there is such a folder.
struct RuntimeDirectory {
    std::string path = "/dev/shm/fuzz-XXXXXX";

    RuntimeDirectory() {
        if (!mkdtemp(path.data())) {
            path = "/tmp/fuzz-XXXXXX";
            require(mkdtemp(path.data()) != nullptr);
        }
        setenv("XDG_RUNTIME_DIR", path.c_str(), 1);
    }
    ~RuntimeDirectory() { std::filesystem::remove_all(path); }
};

} // namespace vantro::fuzz

#endif
