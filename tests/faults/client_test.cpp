// Every public call of the library, with every allocation and every system call that it makes
// failing in turn, once and from then on. A call has a documented result or a documented abort(),
// leaves nothing behind, and the next call works.
#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <optional>
#include <sstream>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <vantro/catalogue.h>
#include <vantro/extras.h>
#include <vantro/platform/log.h>

#include "tests/faults/rows.h"
#include "tests/support/music.h"
#include "tests/support/process.h"

namespace vantro::faults {

namespace {

constexpr int exception_escaped = 7;

// What one failure led to, as a forked child tells it.
struct Report {
    bool more;
    char failed[sizeof Control::name]; // the allocation or call; not known of a child that ended
    char problems[2000];
};
Report *report; // shared with children

std::string words_of(const Plan &plan) {
    return fmt::format("{} {} of variant {} fails {}", plan.nth,
                       plan.kind == Kind::allocation ? "allocation" : "call", plan.variant,
                       plan.times == 1 ? "once" : "from then on");
}

bool serves(const Row &row) {
    return row.way == Way::serves || row.way == Way::serves_first;
}

// One failure in one row, and the same call again.
void play(const Row &row, const Plan &plan) {
    std::string problems;
    problems.reserve(sizeof report->problems);
    const int64_t blocks = live_blocks();
    const long descriptors = open_descriptors();
    {
        Scene scene(plan);
        const bool succeeded = row.run(scene);
        report->more = scene.more();
        std::memcpy(report->failed, control().name, sizeof report->failed);
        if (!serves(row)) {
            scene.expect(succeeded || plan.kind != Kind::none, "the call fails");
            scene.end_faults();
            scene.expect(row.run(scene), "the next call fails");
        }
        for (const std::string &problem : scene.problems()) {
            problems += "\n  " + problem;
        }
    }
    if (!serves(row) && live_blocks() != blocks) {
        problems += fmt::format("\n  {} blocks are left", live_blocks() - blocks);
    }
    if (!serves(row) && open_descriptors() != descriptors) {
        problems += fmt::format("\n  {} descriptors are left", open_descriptors() - descriptors);
    }
    report->problems[problems.copy(report->problems, sizeof report->problems - 1)] = '\0';
}

// The same in a process of its own, which may end with abort() where that is documented.
void play_apart(const Row &row, const Plan &plan) {
    report->more = true;
    report->problems[0] = report->failed[0] = '\0';
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        alarm(5);
        std::set_terminate([] { _exit(exception_escaped); }); // never what is documented
        [&]() noexcept {
            if (!serves(row)) {
                play(row, {}); // what a process has of its own from its first call on
            }
            play(row, plan);
        }();
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    const bool aborted = WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT;
    const bool may_abort = row.way != Way::serves && plan.kind == Kind::allocation;
    if (status != 0 && !(aborted && may_abort)) {
        fmt::format_to_n(report->problems, sizeof report->problems - 1, "\n  {}{}",
                         WIFSIGNALED(status) ? strsignal(WTERMSIG(status)) : "exception", '\0');
    }
}

// @return whether there was something to fail.
bool try_one(const Row &row, const Plan &plan) {
    const bool apart = serves(row) || (row.way == Way::may_abort && plan.kind == Kind::allocation);
    (apart ? play_apart : play)(row, plan);
    if (report->problems[0] == '\0') {
        return report->more;
    }
    ADD_FAILURE() << row.name << ": " << words_of(plan) << " (" << report->failed
                  << "):" << report->problems;
    return report->more;
}

void try_row(const Row &row) {
    if (!serves(row)) {
        play(row, {}); // what is kept from the first call on
        play(row, {});
        ASSERT_STREQ(report->problems, "") << row.name;
    }
#ifdef __SANITIZE_ADDRESS__
    const int64_t step = serves(row) ? 7 : 1; // a child costs a tenth of a second there
#else
    const int64_t step = 1;
#endif
    for (const int64_t times : {int64_t{1}, from_then_on}) {
        for (int64_t nth = 0; try_one(row, {Kind::allocation, nth, 0, times}); nth += step) {
        }
        for (int variant = 0; variant < variants; ++variant) {
            for (int64_t nth = 0; try_one(row, {Kind::call, nth, variant, times}); nth += step) {
            }
        }
    }
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

void ignore_line(uint32_t, int, const char *, void *) {}

void Faults::SetUpTestSuite() {
    ASSERT_NE(mkdtemp(directory.data()), nullptr);
    setenv("XDG_RUNTIME_DIR", directory.c_str(), 1);
    setenv("XDG_STATE_HOME", (directory + "/state").c_str(), 1);
    const auto control_file =
        mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(control_file, MAP_FAILED);
    report = static_cast<Report *>(control_file);
    for (int i = 0; i < songs_count; ++i) {
        test::make_music(directory + fmt::format("/music/{}.flac", i), 60,
                         {fmt::format("TITLE=song {:02} {:a>4000}", i, ""), "ARTIST=Anna"});
    }
    echo.emplace(serve_echo);
    vantrod.emplace(std::vector<std::string>{VANTROD, "--music", directory + "/music", "--player",
                                             "main", "--player", "spare"});
    std::string line;
    do {
        line = vantrod->line();
        ASSERT_FALSE(line.empty());
    } while (line != fmt::format("vantrod: scanned ({} tracks)", songs_count));
    system_log_set_sink(ignore_line, nullptr);

    MsgClient *client = nullptr;
    while (!client) { // the other process begins to serve
        client = msgclient_open("faults.echo", nullptr, 0);
    }
    msgclient_close(client);
    VantroHandle *handle = vantro_connect();
    ASSERT_EQ(vantro_open(handle, "main"), 0);
    MediaSource *sources = nullptr;
    int count = 0;
    ASSERT_EQ(vantro_get_media_sources(handle, &sources, &count), 0);
    music_source = sources[0].id;
    vantro_free_media_sources(sources, count);
    ASSERT_EQ(vantro_create_trksession(handle, music_source, "songs", nullptr,
                                       VANTRO_TRKSESSION_LOAD, &music_session),
              0);
    MediaNode *nodes = nullptr;
    count = 1;
    ASSERT_EQ(vantro_browse(handle, music_source, "songs", 0, &count, &nodes), 0);
    music_song = nodes[0].id;
    vantro_free_media_nodes(nodes, count);
    vantro_disconnect(handle);
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
    try_row(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Calls, Faults, testing::ValuesIn(all_rows()),
                         [](const testing::TestParamInfo<Row> &row) {
                             std::string name = row.param.name;
                             std::replace(name.begin(), name.end(), ' ', '_');
                             return name;
                         });

// A function without a row would never be tried.
TEST(Table, HasEveryPublicCall) {
    std::ifstream map(EXPORT_MAP);
    std::stringstream text;
    text << map.rdbuf();
    const Rows rows = all_rows();
    int names = 0;
    for (std::string word; text >> word;) {
        if (word.back() != ';' || word.find_first_of("*}") != std::string::npos) {
            continue;
        }
        word.pop_back();
        if (word == "VANTRO_1") {
            continue;
        }
        ++names;
        EXPECT_TRUE(std::any_of(rows.begin(), rows.end(), [&](const Row &row) {
            return std::string(row.name).substr(0, std::string(row.name).find(' ')) == word;
        })) << word;
    }
    EXPECT_GE(names, 62);
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

namespace {
VantroHandle *connect(const char *name) {
    VantroHandle *handle = vantro_connect();
    if (vantro_open(handle, name) != 0) {
        ADD_FAILURE() << "no player " << name;
    }
    return handle;
}
} // namespace

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
