// Clients that request as much as they can: their effect on the service and on other clients.
#include <atomic>
#include <fstream>
#include <memory>
#include <thread>

#include <fmt/format.h>

#include "tests/service/vantrod.h"

namespace vantro::service {

namespace {

// A thousand songs, and one thread for long requests.
class UnderLoad : public Vantrod {
  protected:
    void SetUp() override {
        Vantrod::SetUp();
        const std::filesystem::path music = path_ + "/music";
        test::make_music(music / "0.flac", 1000, {"ARTIST=Anna", "ALBUM=All of them"});
        for (int i = 1; i < 1000; ++i) {
            std::filesystem::copy_file(music / "0.flac", music / fmt::format("{}.flac", i));
        }
        start({"--music", music, "--threads", "1"});
        while (told().rfind("vantrod: scanned", 0) != 0) {
            ASSERT_FALSE(service->ended());
        }
    }
    // Requests all nodes, with their metadata.
    static int ask_for_all(const Client &client, std::string &room) {
        static const std::string all =
            as(VANTRO_COMMAND_BROWSE_METADATA, browse(1, "songs", 0, 1000));
        return msgclient_putget(client.client, all.data(), static_cast<uint32_t>(all.size()),
                                room.data(), static_cast<uint32_t>(room.size()), nullptr, 0);
    }
    long resident_bytes() const {
        long all = 0, resident = 0;
        std::ifstream(fmt::format("/proc/{}/statm", service->id())) >> all >> resident;
        return resident * getpagesize();
    }
};

// Counted, not timed: the answers to the other clients before one client had its answer.
TEST_F(UnderLoad, ManyThreadsOfOneClientTakeNoTurnsFromAnother) {
    const Client greedy;
    const Client modest;
    ASSERT_EQ(greedy.result(open_main), 0);
    ASSERT_EQ(modest.result(open_main), 0);
    std::atomic<int> given = 0;
    std::atomic<bool> ended = false;
    constexpr int threads = 64;
    std::vector<std::thread> asking;
    asking.reserve(threads);
    for (int i = 0; i < threads; ++i) {
        asking.emplace_back([&] {
            std::string room(1 << 20, '\0');
            while (!ended) {
                EXPECT_EQ(ask_for_all(greedy, room), 0);
                ++given;
            }
        });
    }
    while (given < 2 * threads) {
        std::this_thread::yield();
    }
    const struct {
        const char *name;
        std::string request;
    } rows[] = {{"a long command", browse(1, "songs", 0, 10)}, {"a short command", state}};
    for (const auto &row : rows) {
        std::vector<int> counts(21);
        for (int &count : counts) {
            const int before = given;
            modest.ask(row.request);
            count = given - before;
        }
        // The usual time, since this thread itself may have to wait for a processor.
        std::nth_element(counts.begin(), counts.begin() + 10, counts.end());
        EXPECT_LT(counts[10], threads / 4) << row.name;
    }
    ended = true;
    for (std::thread &each : asking) {
        each.join();
    }
}

TEST_F(UnderLoad, MemoryComesBackWithinAMinute) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers have their own allocator";
#endif
    constexpr long load = 100 << 20;
    std::string none;
    const Client other; // its answer is above those of the load in memory, and stays
    ASSERT_EQ(other.result(open_main), 0);
    {
        std::string room(1 << 20, '\0');
        ASSERT_EQ(ask_for_all(other, room), 0);
    }
    const long before = resident_bytes();
    std::vector<std::unique_ptr<Client>> clients;
    while (resident_bytes() < before + load) {
        clients.push_back(std::make_unique<Client>());
        ASSERT_NE(clients.back()->client, nullptr);
        ASSERT_EQ(clients.back()->result(open_main), 0);
        for (int i = 0; i < 64; ++i) {
            ask_for_all(*clients.back(), none); // held, and never fetched
        }
        ASSERT_LT(clients.size(), 100u) << "nothing is held";
    }
    ASSERT_EQ(ask_for_all(other, none), MSG_STATUS_QUEUED);
    clients.clear();
    const auto until = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (resident_bytes() > before + load / 4 && std::chrono::steady_clock::now() < until) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    EXPECT_LE(resident_bytes(), before + load / 4) << "of " << before;
}

} // namespace

} // namespace vantro::service
