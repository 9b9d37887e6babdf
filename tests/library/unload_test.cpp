// The libraries loaded, used and unloaded, again and again: nothing of them stays in the process.
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include <dlfcn.h>
#include <malloc.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

template <class Function>
Function *find(void *module, const char *name) {
    return reinterpret_cast<Function *>(dlsym(module, name));
}

long descriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

bool mapped(const std::string &name) {
    std::ifstream maps("/proc/self/maps");
    const std::string all(std::istreambuf_iterator<char>(maps), {});
    return all.find(name) != all.npos;
}

TEST(Libraries, AreUnloadedWhole) {
    std::string directory = std::filesystem::temp_directory_path() / "vantro-test.XXXXXX";
    ASSERT_NE(mkdtemp(directory.data()), nullptr);
    setenv("XDG_RUNTIME_DIR", directory.c_str(), 1);
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t service = fork();
    if (service == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        find<void(int)>(dlopen(FAMILIES, RTLD_NOW), "serve_family")(ready[1]);
    }
    char byte;
    EXPECT_EQ(read(ready[0], &byte, 1), 1);

    constexpr int rounds = 100, first_rounds = 10;
    long descriptors_before = 0;
    size_t bytes_before = 0;
    for (int round = 0; round < rounds && !testing::Test::HasFailure(); ++round) {
        void *module = dlopen(FAMILIES, RTLD_NOW);
        ASSERT_NE(module, nullptr) << dlerror();
        EXPECT_EQ(find<int()>(module, "use_families")(), 0) << "the line that failed";
        EXPECT_TRUE(mapped("libvantro"));
        ASSERT_EQ(dlclose(module), 0);
        EXPECT_FALSE(mapped("libvantro") || mapped(FAMILIES));
        // If a handler for forks or for the end of threads were still registered, it would now be
        // called, and crash.
        std::thread([] {}).join();
        const pid_t child = fork();
        if (child == 0) {
            _exit(0);
        }
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
        if (round + 1 == first_rounds) {
            descriptors_before = descriptors();
            bytes_before = mallinfo2().uordblks;
        }
    }
    EXPECT_EQ(descriptors(), descriptors_before);
    // If each round left the smallest block, there would be twice as much.
    EXPECT_LT(mallinfo2().uordblks, bytes_before + 16 * (rounds - first_rounds));
    kill(service, SIGKILL);
    waitpid(service, nullptr, 0);
    std::filesystem::remove_all(directory);
}

} // namespace
