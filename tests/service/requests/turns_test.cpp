#include "service/requests/turns.h"

#include <atomic>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "service/requests/progress.h"

namespace vantro::service::requests {

namespace {

// Queues pieces of work while another one is running. Clients are letters. A piece can queue
// another one of its client, like a client that asks again.
struct Room {
    Turns turns{1};
    std::string done;

    Room() { turns.begin('-'); }
    void leave(char client, int again = 0) {
        EXPECT_TRUE(turns.leave(client, [this, client, again] {
            done += client;
            if (again > 0) {
                leave(client, again - 1);
            }
        }));
    }
    std::string finish() {
        turns.finish();
        return done;
    }
};

TEST(Turns, GoByClientAndNotByArrival) {
    Room room;
    for (int i = 0; i < 5; ++i) {
        room.leave('a');
    }
    room.leave('b');
    room.leave('c');
    room.leave('c');
    EXPECT_EQ(room.finish(), "abcacaaa");
}

TEST(Turns, AClientThatIsNewComesNext) {
    Room room;
    for (const char client : {'a', 'b', 'c', 'd'}) {
        room.leave(client, 3);
    }
    // During the second round, in which all others have already asked for the third.
    EXPECT_TRUE(room.turns.leave('e', [&] {
        room.done += 'e';
        room.turns.leave('n', [&] { room.done += 'n'; });
    }));
    EXPECT_EQ(room.finish().substr(0, 6), "abcden");
    EXPECT_EQ(room.done.substr(6), "abcdabcdabcd");
}

TEST(Turns, AnIdThatIsUsedAgainIsANewClient) {
    Room room;
    for (int i = 0; i < 5; ++i) {
        room.leave('a');
    }
    room.leave('b', 2);
    room.turns.forget('a');
    room.leave('a', 1);
    EXPECT_EQ(room.finish(), "abaabaabaa");
}

TEST(Turns, APlaceThatBecameFreeIsTakenAtOnce) {
    Turns turns(1);
    EXPECT_TRUE(turns.begin(1));
    EXPECT_FALSE(turns.begin(2));
    turns.finish();
    EXPECT_FALSE(turns.leave(2, [] { FAIL() << "is done by whoever has the place"; }));
    EXPECT_FALSE(turns.begin(1));
    EXPECT_TRUE(turns.leave(1, [] { FAIL() << "was dropped"; }));
    turns.stop();
    turns.finish();
    EXPECT_TRUE(turns.begin(1));
}

TEST(Progress, TellsAThreadThatIsStuckFromOneThatGoesOn) {
    Progress progress;
    const Step step;
    EXPECT_TRUE(progress.gets_on());
    EXPECT_FALSE(progress.gets_on()); // at the same piece
    Step::next();
    EXPECT_TRUE(progress.gets_on());
    for (size_t i = 0; i < 2 * steps_max; ++i) {
        std::thread([] { const Step other; }).join();
    }
    Step::next();
    EXPECT_TRUE(progress.gets_on());

    enum { begins, is_stuck, may_end };
    std::atomic<int> state = begins;
    std::thread late([&state] {
        const Step other;
        state = is_stuck;
        state.notify_all();
        state.wait(is_stuck);
    });
    state.wait(begins);
    Step::next();
    EXPECT_TRUE(progress.gets_on());
    Step::next();
    EXPECT_FALSE(progress.gets_on()) << "a thread that started after many others is not watched";
    state = may_end;
    state.notify_all();
    late.join();
}

} // namespace

} // namespace vantro::service::requests
