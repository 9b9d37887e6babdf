// Every public call of the library, with every allocation and every system call that it makes
// failing in turn, once and from then on. A call has a documented result or a documented abort(),
// leaves nothing behind, and the next call works.
#include <fcntl.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <optional>
#include <sstream>

#include <vantro/catalogue.h>
#include <vantro/platform/log.h>

#include "tests/faults/rows.h"
#include "tests/support/music.h"
#include "tests/support/process.h"

namespace vantro::faults {

namespace {

constexpr int exception_escaped = 7;

// The result of one failure, as a forked child reports it.
struct Report {
    bool more;
    char failed[sizeof Control::name]; // the allocation or call; not known of a child that ended
    char problems[2000];
};
Report *report; // shared with children

bool serves(const Row &row) {
    return row.way == Way::serves || row.way == Way::serves_first;
}

// One failure in one row, and the same call again.
void play(const Row &row, const Plan &plan, std::string &right) {
    const int64_t blocks = live_blocks();
    const long descriptors = open_descriptors();
    const bool learns = right.empty();
    char problems[sizeof report->problems] = "";
    {
        Scene scene(plan);
        std::string told = row.run(scene), again = told;
        report->more = scene.more();
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
                play(row, {}, right); // makes what a process keeps from its first call on
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
    inline static std::string directory = "/tmp/vantro-faults-XXXXXX";
    inline static std::optional<test::Process> vantrod;
    inline static std::optional<test::Process> echo;
};

void Faults::SetUpTestSuite() {
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
        play(row, {}, right); // makes what is kept from the first call on
        play(row, {}, right);
        ASSERT_STREQ(report->problems, "");
        ASSERT_NE(right, "failed");
    }
#ifdef __SANITIZE_ADDRESS__
    const int64_t step = serves(row) ? 7 : 1; // a child costs a tenth of a second there
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
