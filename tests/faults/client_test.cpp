// Every public call of the library, while every allocation and every system call that it makes
// fails in turn, once and from then on. A call has a documented result or a documented abort(),
// leaks nothing, and the next call works.
#include <fcntl.h>
#include <sys/mman.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <fstream>
#include <limits>
#include <optional>
#include <sstream>

#include <vantro/catalogue.h>
#include <vantro/platform/log.h>
#include <vantro/vantro.hpp>

#include "tests/faults/rows.h"
#include "tests/support/music.h"
#include "tests/support/process.h"

namespace vantro::faults {

namespace {

constexpr int exception_escaped = 7;

// The result of one failure, as a forked child reports it.
struct Report {
    bool more;
    char failed[sizeof Control::name]; // the allocation or call; not known if the child has ended
    char problems[2000];
};
Report *report; // shared with children

bool serves(const Row &row) {
    return row.way == Way::serves || row.way == Way::serves_first;
}

// Causes one failure in one row, and then makes the same call again.
void play(const Row &row, const Plan &plan, std::string &right) {
    const int64_t blocks = live_blocks();
    const long descriptors = open_descriptors();
    const bool learns = right.empty();
    char problems[sizeof report->problems] = "";
    {
        Scene scene(plan);
        std::string told = row.run(scene), again = told;
        report->more = scene.more();
        if (told == "failed" && row.tells_why && !scene.tells_why()) {
            told = "failed, and does not give the reason";
        }
        std::memcpy(report->failed, control().name, sizeof report->failed);
        if (!serves(row)) {
            scene.end_faults();
            again = row.run(scene);
        }
        const bool good = told == right || (plan.kind != Kind::none && told == "failed");
        if (learns) {
            right.swap(told);
        } else if (!good || (again != right && !serves(row))) {
            *fmt::format_to_n(problems, sizeof problems - 1, "{}; again: {}", told, again).out =
                '\0';
        }
    }
    if (!serves(row) && !learns && problems[0] == '\0' &&
        (live_blocks() != blocks || open_descriptors() != descriptors)) {
        *fmt::format_to_n(problems, sizeof problems - 1, "{} blocks, {} descriptors left",
                          live_blocks() - blocks, open_descriptors() - descriptors)
             .out = '\0';
    }
    std::memcpy(report->problems, problems, sizeof problems);
}

// play() in a process of its own, which may end with abort() if that is documented.
void play_apart(const Row &row, const Plan &plan, std::string &right) {
    *report = {true, "", ""};
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        alarm(60);                                            // on a loaded machine
        std::set_terminate([] { _exit(exception_escaped); }); // never what is documented
        try {
            if (!serves(row)) {
                play(row, {}, right); // creates what a process keeps after its first call
            }
            play(row, plan, right);
        } catch (...) {
            _exit(exception_escaped);
        }
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    const bool aborted = WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT;
    if (status != 0 && !(aborted && row.way != Way::serves && plan.kind == Kind::allocation)) {
        *fmt::format_to_n(report->problems, sizeof report->problems - 1, "{}",
                          WIFSIGNALED(status) ? strsignal(WTERMSIG(status)) : "exception")
             .out = '\0';
    }
}

// @return whether there was something to fail.
bool try_one(const Row &row, const Plan &plan, std::string &right) {
    const bool apart = serves(row) || (row.way == Way::may_abort && plan.kind == Kind::allocation);
    (apart ? play_apart : play)(row, plan, right);
    EXPECT_STREQ(report->problems, "")
        << row.name << ": " << (plan.kind == Kind::allocation ? "allocation " : "call ") << plan.nth
        << " of variant " << plan.variant << " fails " << plan.times
        << " times: " << report->failed;
    return report->more;
}

class Faults : public testing::TestWithParam<Row> {
  public:
    static void SetUpTestSuite();
    static void TearDownTestSuite() {
        vantrod.reset();
        echo.reset();
        std::filesystem::remove_all(directory);
    }

  private:
    inline static std::string directory;
    inline static std::optional<test::Process> vantrod;
    inline static std::optional<test::Process> echo;
};

void Faults::SetUpTestSuite() {
    directory = "/tmp/vantro-faults-XXXXXX";
    ASSERT_NE(mkdtemp(directory.data()), nullptr);
    setenv("XDG_RUNTIME_DIR", directory.c_str(), 1);
    setenv("XDG_STATE_HOME", (directory + "/state").c_str(), 1);
    report = static_cast<Report *>(
        mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    for (int i = 0; i < songs_count; ++i) {
        test::make_music(directory + fmt::format("/music/{}.flac", i), 60,
                         {fmt::format("TITLE=song {:02} {:a>4000}", i, ""), "ARTIST=Anna"});
    }
    echo.emplace(serve_echo);
    EXPECT_EQ(echo->line(), "ready");
    vantrod.emplace(std::vector<std::string>{VANTROD, "--music", directory + "/music", "--player",
                                             "main", "--player", "spare", "--audio", "clock"});
    for (std::string line; line.find("scanned") == line.npos; line = vantrod->line()) {
        ASSERT_TRUE(vantrod->readable(20'000));
    }
    system_log_set_sink([](uint32_t, int, const char *, void *) {}, nullptr);
    Scene scene({});
    uint64_t session = 0;
    ASSERT_EQ(vantro_create_trksession(scene.player(), 1, "songs", nullptr, VANTRO_TRKSESSION_LOAD,
                                       &session),
              0);
    ASSERT_EQ(session, 1u);
}

Rows all_rows() {
    Rows rows;
    for (const auto &some :
         {record_rows(), client_rows(), server_rows(), player_rows(), event_rows()}) {
        rows.insert(rows.end(), some.begin(), some.end());
    }
    return rows;
}

TEST_P(Faults, EachInTurn) {
    const Row &row = GetParam();
    std::string right = serves(row) ? "served" : "";
    if (!serves(row)) {
        play(row, {}, right); // creates what is kept after the first call
        play(row, {}, right);
        ASSERT_STREQ(report->problems, "");
        ASSERT_NE(right, "failed");
    }
#ifdef __SANITIZE_ADDRESS__
    const int64_t step = serves(row) ? 7 : 1; // a child takes a tenth of a second there
#else
    const int64_t step = 1;
#endif
    for (const int64_t times : {int64_t{1}, from_then_on}) {
        for (int64_t nth = 0; try_one(row, {Kind::allocation, nth, 0, times}, right); nth += step) {
        }
        for (int variant = 0; variant < variants; ++variant) {
            for (int64_t nth = 0; try_one(row, {Kind::call, nth, variant, times}, right);
                 nth += step) {
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Calls, Faults, testing::ValuesIn(all_rows()), [](const auto &row) {
    std::string name = row.param.name;
    std::replace(name.begin(), name.end(), ' ', '_');
    return name;
});

using SmallExchanges = test::RuntimeDirectory;

TEST_F(SmallExchanges, TakeNothingFromTheHeap) {
    test::Process child([] {
        const int64_t of_the_client = allocations_of_small_exchanges(0);
        EXPECT_GT(of_the_client, 0) << "the counting itself does not work";
        // A connection gets its words, and a lane for each processor, when it first needs them.
        constexpr int64_t made_once = 8;
        EXPECT_LE(allocations_of_small_exchanges(1000), of_the_client + made_once);
        return testing::Test::HasFailure() ? 1 : 0;
    });
    EXPECT_EQ(child.rest(), "");
    EXPECT_EQ(child.wait(), 0);
}

// The same work with the C functions and the C++ headers, with the headers' texts and lists.
struct Work {
    const char *name;
    void (*in_c)(VantroHandle *);
    void (*in_cpp)(Player &);
};

void read_all(VantroCursor *cursor) {
    const MediaNode *node = nullptr;
    const Metadata *metadata = nullptr;
    while (vantro_cursor_next(cursor, &node, &metadata) == 1) {
    }
    vantro_cursor_close(cursor);
}

void read_all(auto &&nodes) {
    for (const auto &node : nodes) {
        static_cast<void>(node);
    }
    EXPECT_TRUE(nodes.done());
}

const std::string long_text(200, 'x');

const Work works[] = {
    {"connect",
     [](VantroHandle *) {
         VantroHandle *const mine = vantro_connect_timed(20'000);
         vantro_open(mine, "main");
         vantro_disconnect(mine);
     },
     [](Player &) { Player::connect("main", std::chrono::seconds(20)).or_throw(); }},
    {"sources",
     [](VantroHandle *with) {
         MediaSource *sources = nullptr;
         int count = 0;
         vantro_get_media_sources(with, &sources, &count);
         vantro_free_media_sources(sources, count);
     },
     [](Player &player) { player.sources().or_throw(); }},
    {"browse", [](VantroHandle *with) { read_all(vantro_cursor_browse(with, 1, "songs", 0, 0)); },
     [](Player &player) { read_all(player.browse(1, "songs")); }},
    {"browse with metadata",
     [](VantroHandle *with) { read_all(vantro_cursor_browse(with, 1, "songs", 0, 1)); },
     [](Player &player) { read_all(player.browse_metadata(1, "songs")); }},
    {"search",
     [](VantroHandle *with) {
         read_all(vantro_cursor_search(with, 1, "", long_text.c_str(), 0, 0));
     },
     [](Player &player) { read_all(player.search(1, long_text)); }},
    {"tracks", [](VantroHandle *with) { read_all(vantro_cursor_tracks(with, 1, 0, 1)); },
     [](Player &player) { read_all(player.tracks_metadata(1)); }},
    {"a refusal", [](VantroHandle *with) { vantro_destroy_trksession(with, 4'711); },
     [](Player &player) { EXPECT_EQ(player.destroy_session(4'711).failure().number, ENOENT); }},
    {"status",
     [](VantroHandle *with) {
         VantroStatus *status = nullptr;
         vantro_get_status(with, &status);
         vantro_free_status(status);
     },
     [](Player &player) { player.status().or_throw(); }},
    {"state",
     [](VantroHandle *with) {
         VantroStateInfo *state = nullptr;
         vantro_get_current_state(with, &state);
         free(state);
     },
     [](Player &player) { player.state().or_throw(); }},
    {"events",
     [](VantroHandle *with) {
         while (vantro_event_get(with)->object_name) {
         }
     },
     [](Player &player) {
         for (Events events = player.events(); *events.next();) {
         }
     }},
};

class Wrapper : public testing::Test {
  protected:
    static void SetUpTestSuite() { Faults::SetUpTestSuite(); }
    static void TearDownTestSuite() { Faults::TearDownTestSuite(); }

    // The minimum of several attempts: a connection gets a lane for each processor when it needs
    // one.
    static int64_t allocations(const std::function<void()> &work) {
        int64_t least = std::numeric_limits<int64_t>::max();
        for (int attempt = 0; attempt < 5; ++attempt) {
            arm(control(), {Kind::allocation, std::numeric_limits<int64_t>::max()});
            counting() = true;
            work();
            counting() = false;
            least = std::min<int64_t>(least, control().seen);
            disarm(control());
        }
        return least;
    }
};

TEST_F(Wrapper, AllocatesNothingBeyondWhatTheCallsInCDo) {
    Player player = Player::connect("main").or_throw();
    EXPECT_GT(allocations([] { std::string(long_text).clear(); }), 0) << "nothing is counted";
    for (const Work &work : works) {
        const int64_t in_c = allocations([&] { work.in_c(player.handle()); });
        EXPECT_EQ(allocations([&] { work.in_cpp(player); }), in_c) << work.name;
    }
}

// Without a row a function would never be tested.
TEST(Table, HasEveryPublicCall) {
    std::string named = " ";
    for (const Row &row : all_rows()) {
        named += row.name + std::string(" ");
    }
    std::ifstream map(EXPORT_MAP);
    int names = 0;
    for (std::string word; map >> word;) {
        if (word.back() == ';' && word.find_first_of("*}V") == word.npos) {
            word.back() = ' ';
            ++names;
            EXPECT_NE(named.find(" " + word), std::string::npos) << word;
        }
    }
    EXPECT_GE(names, 62);
}

VantroHandle *connect(const char *name) {
    VantroHandle *handle = vantro_connect();
    EXPECT_EQ(vantro_open(handle, name), 0);
    return handle;
}

} // namespace

long open_descriptors() {
    long count = 0;
    for (int descriptor = 0; descriptor < 256; ++descriptor) {
        count += fcntl(descriptor, F_GETFD) != -1;
    }
    return count;
}

Scene::~Scene() {
    vantro_disconnect(player_);
    vantro_disconnect(spare_);
    msgclient_close(client_);
}

VantroHandle *Scene::player() {
    return player_ ? player_ : player_ = connect("main");
}

VantroHandle *Scene::spare() {
    return spare_ ? spare_ : spare_ = connect("spare");
}

MsgClient *Scene::client() {
    return client_ ? client_ : client_ = msgclient_open("faults.echo", nullptr, 0);
}

} // namespace vantro::faults
