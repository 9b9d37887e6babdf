// Nothing on the way of a small exchange takes from the heap, in client or server.
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include <vantro/messaging.h>

namespace {

std::atomic<long> allocations{0};

} // namespace

// Every allocation of the process is counted, also those of the libraries below: the sanitizers'
// run-time libraries offer a hook, and elsewhere the allocator's entry points are replaced.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define COUNTED_BY_HOOK 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define COUNTED_BY_HOOK 1
#endif
#endif

extern "C" {
#ifdef COUNTED_BY_HOOK
int __sanitizer_install_malloc_and_free_hooks(void (*on_malloc)(const volatile void *, size_t),
                                              void (*on_free)(const volatile void *));
#else
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);
void *__libc_memalign(size_t alignment, size_t size);

void *malloc(size_t size) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_malloc(size);
}
void *calloc(size_t count, size_t size) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_calloc(count, size);
}
void *realloc(void *block, size_t size) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_realloc(block, size);
}
void *aligned_alloc(size_t alignment, size_t size) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_memalign(alignment, size);
}
#endif
}

namespace {

void start_counting() {
#ifdef COUNTED_BY_HOOK
    static const int installed = __sanitizer_install_malloc_and_free_hooks(
        [](const volatile void *, size_t) { allocations.fetch_add(1, std::memory_order_relaxed); },
        [](const volatile void *) {});
    ASSERT_NE(installed, 0);
#endif
    allocations = 0;
}

int32_t answer(MsgOsb *open, MsgContext *context, MsgService *) {
    return callout_reply(open, context, 0, context->payload, 4);
}

TEST(ExchangeAllocations, SmallExchangesTakeNothingFromTheHeap) {
    std::string directory = std::filesystem::temp_directory_path() / "vantro-test.XXXXXX";
    ASSERT_NE(mkdtemp(directory.data()), nullptr);
    setenv("XDG_RUNTIME_DIR", directory.c_str(), 1);

    static MsgServer *server; // lives until the process ends
    server = msgserver_create(1024, 16, MSGSERVER_FLAG_PATH);
    ASSERT_NE(server, nullptr);
    ASSERT_GE(msgserver_add(server, "counted", nullptr, nullptr, 1024, answer, nullptr, nullptr),
              0);
    std::thread serving([] { msgserver_thread_loop(server); });
    MsgClient *client = msgclient_open("counted", nullptr, 0);
    ASSERT_NE(client, nullptr);

    uint32_t request[4] = {1, 2, 3, 4};
    uint32_t reply = 0;
    uint32_t length = 0;
    int failed = 0;
    const auto exchange = [&] {
        const int result =
            msgclient_putget(client, request, sizeof request, &reply, sizeof reply, &length, 0);
        failed += result != 0 || length != sizeof reply || reply != request[0];
    };
    exchange(); // makes what each thread makes once

    start_counting();
    void *volatile block = malloc(1); // volatile: the pair must not be optimised away
    free(block);
    ASSERT_GE(allocations, 1) << "the counting itself does not work";
    allocations = 0;
    for (int i = 0; i < 1000; ++i) {
        exchange();
    }
    EXPECT_EQ(allocations, 0);
    EXPECT_EQ(failed, 0);

    msgclient_close(client);
    __atomic_store_n(&server->stop, 1, __ATOMIC_SEQ_CST);
    const int pulse = connect_attach(0, 0, server->channel, 0, 0);
    ASSERT_GT(pulse, 0);
    EXPECT_EQ(pulse_send(pulse, 10, 1, 0), 0);
    serving.join();
    std::filesystem::remove_all(directory);
}

} // namespace
