#include <thread>

#include "tests/bridges/mpd/bridge_process.h"

#include <chrono>
#include <future>

#include <sys/resource.h>

namespace vantro::mpd {
namespace {

constexpr const char *one = "music/Red/Way \"1\"/1.flac";
constexpr const char *two = "music/Red/Way \"1\"/2.ogg";

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool memory_is_shadowed = true;
#else
constexpr bool memory_is_shadowed = false;
#endif

// A word of a line.
std::string quoted(const std::string &text) {
    std::string word = "\"";
    for (const char c : text) {
        word += c == '"' || c == '\\' ? std::string{'\\', c} : std::string{c};
    }
    return word + '"';
}

TEST_F(Bridge, AnswersToLines) {
    RawClient client(port_);
    EXPECT_EQ(client.greeting.rfind("OK MPD 0.23", 0), 0u);
    const std::string loose_uri = "file: music/loose.flac\n";
    struct Row {
        std::string line;
        std::string says; // After "...", a part of it.
    };
    const std::string cover_size = std::to_string(cover_.size());
    const Row rows[] = {
        {"x", "ACK [5@0] {} unknown command \"x\"\n"},
        {"", "ACK [5@0] {} no command given\n"},
        {"play \"0", "ACK [2@0] {} a closing quotation mark is missing\n"},
        {"play 1 2", "ACK [2@0] {play} wrong number of arguments for \"play\"\n"},
        {"setvol 101", "ACK [2@0] {setvol} not a number, or out of range: \"101\"\n"},
        {"next", "ACK [55@0] {next} the queue is empty, or there is nothing to play\n"},
        {"playid 9", "ACK [50@0] {playid} no such song in the queue\n"},
        {"kill", "ACK [4@0] {kill} only the owner of the service can end it, not a client\n"},
        {"single 1", "...ACK [2@0] {single} single needs repeat"},
        {"ping", "OK\n"},
        // By the words of the filter, and then among all songs.
        {"find genre Rock window 0:1", std::string("...file: ") + one},
        {"find genre Rock window 1:2", "..." + loose_uri},
        {"count \"(title != 'x')\"", "songs: 3\nplaytime: 190\nOK\n"},
        {"find genre Rock window 1:2", "..." + loose_uri},
        {"addid " + quoted(one), "Id: 1\nOK\n"},
        {"addid music/loose.flac 0", "Id: 2\nOK\n"},
        {"addid music", "ACK [50@0] {addid} no song: \"music\"\n"},
        {"play 1", "OK\n"},
        {"pause 1", "OK\n"},
        {"seekcur 12.345", "OK\n"},
        {"repeat 1", "OK\n"},
        {"status", "...playlistlength: 2\nstate: pause\nsong: 1\nsongid: 1\ntime: 12:100\n"
                   "elapsed: 12.345\nduration: 100.000\nnextsong: 0\nnextsongid: 2\nOK\n"},
        {"currentsong", "...Title: One\nTrack: 1\nDate: 2001\nGenre: Rock\nTime: 100\n"
                        "duration: 100.000\nPos: 1\nId: 1\nOK\n"},
        {"plchangesposid 0", "cpos: 0\nId: 2\ncpos: 1\nId: 1\nOK\n"},
        {"moveid 2 1", "OK\n"},
        {"playlistid 2", "...Pos: 1\nId: 2\nOK\n"},
        {"playlistinfo 2", "ACK [2@0] {playlistinfo} no such position in the queue\n"},
        {"playlistfind artist Blue", "...Id: 2\nOK\n"},
        {"command_list_begin\naddid music/loose.flac\nadd " + quoted(two) +
             " 0\ndelete 1\nmove 0 1\nswap 0 1\ncommand_list_end",
         "Id: 3\nOK\n"},
        {"playlist", "0:file: " + std::string(two) +
                         "\n1:file: music/loose.flac\n2:file: music/loose.flac\nOK\n"},
        {"command_list_begin\ndelete 0\ndelete 5\ncommand_list_end",
         "ACK [2@1] {delete} no such position in the queue\n"},
        {"plchangesposid 1", "cpos: 0\nId: 2\ncpos: 1\nId: 3\nOK\n"},
        {"tagtypes clear", "OK\n"},
        {"tagtypes enable Artist Name", "OK\n"},
        {"tagtypes", "tagtype: Artist\nOK\n"},
        {"find \"((artist == 'Blue') AND (!(title == \\\"One\\\")))\"",
         "..." + loose_uri + "Last-Modified: "},
        {"find \"(base 'music/Red')\" sort -Title window 1:2",
         "...file: music/Red/Way \"1\"/1.flac\n"},
        {"find \"(artist =~ '^B.?ue$')\"", "..." + loose_uri},
        {"count \"(title =~ '^ZW')\"", "songs: 0\nplaytime: 0\nOK\n"},
        {"searchcount \"(title =~ '^ZW\xC3\xB6')\"", "songs: 1\nplaytime: 60\nOK\n"},
        {"count \"(file !~ 'ogg$')\"", "songs: 2\nplaytime: 130\nOK\n"},
        {"find \"(any =~ '(')\"",
         "ACK [2@0] {find} not a regular expression: missing closing parenthesis at 1\n"},
        {"find \"(file =~ '(.+)+[?!]')\"",
         "ACK [2@0] {find} the regular expression cannot be used: match limit exceeded\n"},
        {"find \"(file =~ '" + std::string(1025, 'x') + "')\"",
         "ACK [2@0] {find} the regular expression is too long\n"},
        {"stats", "...\ndb_update: "},
        {"readcomments music/loose.flac", "TITLE: Loose\nARTIST: Blue\nGENRE: Rock\nOK\n"},
        {"listmounts", "mount: music\nstorage: " + music_.string() + "\nOK\n"},
        {"mount a nfs://b/c",
         "ACK [4@0] {mount} the music directories are set in the service's configuration\n"},
        {"count \"(artist == 'Red')\" group album",
         "Album: The Way\nsongs: 2\nplaytime: 160\nOK\n"},
        {"count file music/loose.flac", "songs: 1\nplaytime: 30\nOK\n"},
        {"count \"((file == 'music/none') AND (artist == 'Red'))\"", "songs: 0\nplaytime: 0\nOK\n"},
        {"list title \"(artist == 'Red')\" group genre group date", // the last group is the outer
                                                                    // one
         "Date: 2001\nGenre: \nTitle: Zw\xC3\x96lf\nGenre: Rock\nTitle: One\nOK\n"},
        {"list file artist Blue", loose_uri + "OK\n"},
        {"list album group artist", "Artist: Blue\nAlbum: \nArtist: Red\nAlbum: The Way\nOK\n"},
        {"listplaylist mix", loose_uri + "file: " + one + "\nOK\n"},
        {"binarylimit 64", "OK\n"},
        {"albumart music/loose.flac 64",
         "size: " + cover_size + "\ntype: image/png\nbinary: 5\n" + cover_.substr(64) + "\nOK\n"},
        {"listpartitions", "partition: main\npartition: kitchen\nOK\n"},
        {"partition kitchen", "OK\n"},
        {"status", "...partition: kitchen\nplaylist: 1\nplaylistlength: 0\nstate: stop\nOK\n"},
        {"command_list_ok_begin\nping\nping\ncommand_list_end", "list_OK\nlist_OK\nOK\n"},
        {"command_list_begin\nping\nplay 7\nping\ncommand_list_end",
         "ACK [2@1] {play} no such position in the queue\n"},
        {"command_list_begin\nidle\ncommand_list_end",
         "ACK [1@0] {idle} not allowed in a command list\n"},
        {"command_list_begin\ncommand_list_end", "OK\n"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.line);
        const std::string said = client.ask(row.line);
        if (row.says.starts_with("...")) {
            EXPECT_NE(said.find(row.says.substr(3)), std::string::npos) << said;
        } else {
            EXPECT_EQ(said, row.says);
        }
    }
    client.send("close\n");
    EXPECT_EQ(client.answer(), "(closed)");
}

TEST_F(Bridge, WhoWaitsIsToldOfChanges) {
    RawClient waiting(port_);
    RawClient other(port_);
    waiting.send("idle mixer\n");
    EXPECT_EQ(other.ask("random 1"), "OK\n");
    EXPECT_EQ(other.ask("setvol 50"), "OK\n");
    EXPECT_EQ(waiting.answer(), "changed: mixer\nOK\n");
    // Changed before this command.
    EXPECT_EQ(waiting.ask("idle options"), "changed: options\nOK\n");
    waiting.send("idle playlist\n");
    EXPECT_EQ(other.ask("add music"), "OK\n");
    EXPECT_EQ(waiting.answer(), "changed: playlist\nOK\n");
    // A saved playlist is no part of the database, and neither is the source of the last one.
    RawClient follower(port_);
    for (const char *change : {"save a", "rm a", "save b", "rm b"}) {
        follower.send("idle database stored_playlist\n");
        EXPECT_EQ(other.ask(change), "OK\n");
        EXPECT_EQ(follower.answer(), "changed: stored_playlist\nOK\n") << change;
    }
    waiting.send("idle playlist\n");
    EXPECT_EQ(other.ask("clear"), "OK\n");
    EXPECT_EQ(waiting.answer(), "changed: playlist\nOK\n");
    waiting.send("idle database\n");
    EXPECT_EQ(waiting.ask("noidle"), "OK\n");

    waiting.send("idle output\n");
    vantrod_->kill(SIGKILL);
    vantrod_->wait();
    EXPECT_EQ(other.ask("status"), "ACK [52@0] {status} the player service does not run\n");
    EXPECT_EQ(other.ask("ping"), "OK\n");
    start_vantrod();
    EXPECT_EQ(waiting.answer(), "changed: output\nOK\n");
    EXPECT_NE(other.ask("status").find("\nstate: "), std::string::npos);

    vantrod_->kill(SIGKILL);
    vantrod_->wait();
    start_vantrod();
    const std::string at_once = other.ask("status");
    EXPECT_NE(at_once.find("\nstate: "), std::string::npos) << at_once;

    waiting.send("idle sticker\nping\n");
    EXPECT_EQ(waiting.answer(), "(closed)");
}

TEST_F(Bridge, ClientsSendMessagesToEachOther) {
    RawClient sender(port_), reader(port_);
    const std::string word(40'000, 'x');
    struct Row {
        RawClient &client;
        std::string line, says;
    };
    const Row rows[] = {
        {sender, "sendmessage news hello",
         "ACK [50@0] {sendmessage} no client is subscribed to this channel\n"},
        {reader, "subscribe \"a b\"",
         "ACK [2@0] {subscribe} a channel's name may contain only letters, digits and _-.:\n"},
        {reader, "subscribe news", "OK\n"},
        {reader, "subscribe news", "ACK [56@0] {subscribe} already subscribed to this channel\n"},
        {sender, "idle subscription", "changed: subscription\nOK\n"},
        {sender, "channels", "channel: news\nOK\n"},
        {sender, "sendmessage news \"a b\"", "OK\n"},
        {reader, "idle message", "changed: message\nOK\n"},
        {sender, "sendmessage news " + word, "OK\n"},
        {sender, "sendmessage news " + word, "OK\n"}, // there is no room for it
        {reader, "readmessages",
         "channel: news\nmessage: a b\nchannel: news\nmessage: " + word + "\nOK\n"},
        {reader, "readmessages", "OK\n"},
        {reader, "unsubscribe news", "OK\n"},
        {reader, "unsubscribe news", "ACK [50@0] {unsubscribe} not subscribed to this channel\n"},
        {sender, "partition kitchen", "OK\n"}, // clients of one player hear each other
        {sender, "subscribe news", "OK\n"},
        {reader, "channels", "OK\n"},
        {sender, "partition main", "OK\n"},
        {reader, "channels", "channel: news\nOK\n"},
    };
    for (const Row &row : rows) {
        EXPECT_EQ(row.client.ask(row.line), row.says) << row.line.substr(0, 40);
    }
    for (int i = 0; i < 16; ++i) {
        EXPECT_EQ(reader.ask("subscribe c" + std::to_string(i)), "OK\n");
    }
    EXPECT_EQ(reader.ask("subscribe c16"),
              "ACK [56@0] {subscribe} subscribed to too many channels\n");
    EXPECT_EQ(reader.ask("idle subscription"), "changed: subscription\nOK\n");
    {
        RawClient waiting(port_);
        EXPECT_EQ(waiting.ask("subscribe c1"), "OK\n");
        EXPECT_EQ(reader.ask("idle subscription"), "changed: subscription\nOK\n");
        waiting.send("idle message\n");
        EXPECT_EQ(sender.ask("sendmessage c1 x"), "OK\n");
        EXPECT_EQ(waiting.answer(), "changed: message\nOK\n");
    }
    EXPECT_EQ(reader.ask("idle subscription"), "changed: subscription\nOK\n"); // it has left
}

TEST_F(Bridge, ClientsMayDoWhatTheirPasswordAllows) {
    const std::string file = path_ + "/passwords";
    const auto start = [&](const std::string &text) {
        test::write_file(file, text);
        return test::Process(std::vector<std::string>{VANTRO_MPD, "--bind", "127.0.0.1", "--port",
                                                      "0", "--password-file", file});
    };
    for (const auto &[text, complaint] :
         {std::pair("", " has no password"), std::pair("# x\n\nabc\n", ":3: PASSWORD@PERMISSIONS"),
          std::pair("a@read,write\n", ":1: \"write\" is not one of"),
          std::pair("a@read\r\na@add\n", ":2: the password occurs twice")}) {
        test::Process process = start(text);
        EXPECT_NE(process.rest().find(file + complaint), std::string::npos) << text;
        EXPECT_EQ(process.wait(), 1);
    }
    test::Process bridge = start("@read\nd j@read,player\na@b@control\nboss@admin\n");
    std::string said = bridge.line();
    EXPECT_NE(said.find("can be read by every user"), std::string::npos) << said;
    said = bridge.line();
    ASSERT_TRUE(said.starts_with("vantro-mpd: ready (127.0.0.1:")) << said;
    const auto port = static_cast<uint16_t>(std::stoi(said.substr(said.find(':', 12) + 1)));
    const auto refused = [](const std::string &name) {
        return "ACK [4@0] {" + name + "} you don't have permission for \"" + name + "\"\n";
    };
    struct Row {
        std::string line, says;
    };
    const Row rows[] = {
        {"getvol", "volume: 100\nOK\n"},
        {"setvol 1", refused("setvol")},
        {"setvol", refused("setvol")}, // before its arguments are looked at
        {"password x", "ACK [3@0] {password} incorrect password\n"},
        {"password \"d\"", "ACK [3@0] {password} incorrect password\n"},
        {"command_list_begin\npassword \"d j\"\nsetvol 7\ngetvol\ncommand_list_end",
         "volume: 7\nOK\n"},
        {"addid music/loose.flac", refused("addid")},
        {"save x", refused("save")},
        {"password a@b", "OK\n"},
        {"getvol", refused("getvol")}, // this password has control only
        {"stop", "OK\n"},              // control is player too
        {"rm x", "ACK [50@0] {rm} no saved playlist: \"x\"\n"},
        {"disableoutput 0", refused("disableoutput")},
        {"password boss", "OK\n"},
        {"stop", refused("stop")},
        {"prio 1 2:", "ACK [2@0] {prio} the player's queue has no priorities\n"},
        {"commands",
         "command: binarylimit\ncommand: close\ncommand: commands\ncommand: disableoutput\n"
         "command: enableoutput\ncommand: notcommands\ncommand: password\ncommand: ping\n"
         "command: tagtypes\ncommand: toggleoutput\nOK\n"},
    };
    RawClient client(port);
    for (const Row &row : rows) {
        EXPECT_EQ(client.ask(row.line), row.says) << row.line;
    }
    EXPECT_NE(client.ask("notcommands").find("command: kill\n"), std::string::npos);
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(client.ask("password x"), "ACK [3@0] {password} incorrect password\n");
    }
    EXPECT_EQ(client.ask("ping"), "(closed)");
    bridge.kill(SIGTERM);
    EXPECT_EQ(bridge.wait(), 0);
}

// It makes songs of a file that is known already, and that plays.
TEST_F(Bridge, ASheetThatArrivesGivesTracks) {
    RawClient waiting(port_), other(port_);
    EXPECT_EQ(other.ask("add music/loose.flac"), "OK\n");
    EXPECT_EQ(other.ask("play"), "OK\n");
    waiting.send("idle database\n");
    test::write_file(music_ / "loose.cue",
                     "FILE loose.flac WAVE\nTRACK 01 AUDIO\nTITLE First\nINDEX 01 00:00:00\n"
                     "TRACK 02 AUDIO\nTITLE Second\nINDEX 01 00:29:00\n");
    EXPECT_EQ(waiting.answer(), "changed: database\nOK\n");
    const auto value = [](const std::string &answer, const std::string &key) {
        const size_t at = answer.find(key + ": ");
        return at == answer.npos ? "" : answer.substr(at, answer.find('\n', at) - at);
    };
    // The current song has left the catalogue.
    EXPECT_TRUE(other.ask("status").ends_with("OK\n"));
    EXPECT_EQ(value(other.ask("status"), "state"), "state: play");
    EXPECT_TRUE(other.ask("currentsong").ends_with("OK\n"));
    EXPECT_EQ(value(other.ask("playlistinfo"), "file"), "file: node:gone");
    EXPECT_TRUE(other.ask("addid " + quoted(one) + " 0").ends_with("OK\n"));
    EXPECT_EQ(value(other.ask("playlistinfo"), "file"), std::string("file: ") + one);
    EXPECT_EQ(other.ask("playlistinfo -1"), other.ask("playlistinfo"));
    EXPECT_EQ(other.ask("plchanges -1"), other.ask("playlistinfo"));
    const std::string second = other.ask("find title Second");
    EXPECT_EQ(value(second, "duration"), "duration: 1.000");
    EXPECT_EQ(other.ask("clear"), "OK\n");
    EXPECT_EQ(other.ask("findadd title First"), "OK\n");
    EXPECT_EQ(other.ask("add " + value(second, "file").substr(6)), "OK\n");
    EXPECT_EQ(other.ask("play 0"), "OK\n");
    EXPECT_EQ(other.ask("seekcur 28.9"), "OK\n");
    for (int i = 0; i < 100 && value(other.ask("status"), "song") != "song: 1"; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_EQ(value(other.ask("currentsong"), "Title"), "Title: Second");
    const std::string status = other.ask("status");
    EXPECT_EQ(value(status, "duration"), "duration: 1.000") << status;
    EXPECT_EQ(value(status, "elapsed").rfind("elapsed: 0.", 0), 0u) << status;
}

TEST_F(Bridge, ASongThatIsRemovedKeepsItsPlaceInTheQueue) {
    RawClient waiting(port_), other(port_);
    EXPECT_EQ(other.ask("add music/loose.flac"), "OK\n");
    EXPECT_EQ(other.ask("add \"music/Red/Way \\\"1\\\"/1.flac\""), "OK\n");
    const std::string before = other.ask("playlistinfo 1");
    waiting.send("idle database\n");
    std::filesystem::remove(music_ / "loose.flac");
    EXPECT_EQ(waiting.answer(), "changed: database\nOK\n");
    EXPECT_EQ(other.ask("playlistinfo 1"), before);
    const std::string all = other.ask("playlistinfo");
    EXPECT_TRUE(all.starts_with("file: node:gone\n") && all.ends_with(before)) << all;
}

TEST_F(Bridge, APathIsTakenFromNobody) {
    const std::string at = path_ + "/mpd";
    const auto start = [&] {
        return test::Process(std::vector<std::string>{VANTRO_MPD, "--bind", at});
    };
    const auto is_refused = [&] {
        test::Process process = start();
        return process.line().starts_with("vantro-mpd: cannot listen on ") && process.wait() == 1;
    };
    test::write_file(at, "a file of somebody's");
    EXPECT_TRUE(is_refused());
    EXPECT_EQ(std::filesystem::file_size(at), 20u);
    std::filesystem::remove(at);
    {
        test::Process first = start();
        EXPECT_TRUE(first.line().starts_with("vantro-mpd: ready ("));
        EXPECT_TRUE(is_refused());
        EXPECT_TRUE(std::filesystem::is_socket(at));
        first.kill(SIGKILL);
        first.wait();
    }
    test::Process next = start();
    EXPECT_TRUE(next.line().starts_with("vantro-mpd: ready ("));
    next.kill(SIGTERM);
    EXPECT_EQ(next.wait(), 0);
    EXPECT_FALSE(std::filesystem::exists(at));
}

TEST_F(Bridge, WhoCameWhileDescriptorsWereShortIsServed) {
    struct rlimit before = {};
    ASSERT_EQ(prlimit(bridge_->id(), RLIMIT_NOFILE, nullptr, &before), 0);
    const struct rlimit none = {0, before.rlim_max};
    ASSERT_EQ(prlimit(bridge_->id(), RLIMIT_NOFILE, &none, nullptr), 0);
    std::future<std::string> greeting =
        std::async(std::launch::async, [this] { return RawClient(port_).greeting; });
    EXPECT_EQ(greeting.wait_for(std::chrono::milliseconds(300)), std::future_status::timeout);
    ASSERT_EQ(prlimit(bridge_->id(), RLIMIT_NOFILE, &before, nullptr), 0);
    EXPECT_EQ(greeting.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    bridge_->kill(SIGTERM); // so that it does not wait for ever
}

TEST_F(Bridge, NobodysMisconductReachesOthers) {
    RawClient other(port_);
    RawClient halves(port_);
    halves.send("sta");
    RawClient deep(port_);
    const std::string nested = std::string(1000, '(') + "artist == 'x'" + std::string(1000, ')');
    EXPECT_EQ(deep.ask("find \"" + nested + '"'),
              "ACK [2@0] {find} the filter expression is nested too deeply\n");
    EXPECT_EQ(deep.ask("status " + std::string(1024 * 1024, 'x')),
              "ACK [2@0] {} the line is too long\n");
    EXPECT_EQ(deep.answer(), "(closed)");
    {
        RawClient list(port_);
        list.send("command_list_begin\n");
        std::string all;
        for (int i = 0; i < 70'000; ++i) {
            all += "ping\n";
        }
        EXPECT_EQ(list.ask(all), "ACK [2@0] {} the command list is too long\n");
    }
    RawClient browser(port_);
    EXPECT_EQ(browser.ask("POST /x HTTP/1.1\r\nHost: x\r\n\r\nsetvol 3"), "(closed)");
    // An answer of some 40 MB that its client does not read costs the bridge little, and other
    // clients nothing.
    constexpr int commands = 30'000;
    RawClient slow(port_);
    std::string all = "command_list_ok_begin\n";
    for (int i = 0; i < commands; ++i) {
        all += "commands\n";
    }
    slow.send(all + "command_list_end\n");
    EXPECT_EQ(other.ask("ping"), "OK\n");
    std::ifstream memory("/proc/" + std::to_string(bridge_->id()) + "/statm");
    size_t pages = 0;
    size_t resident = 0;
    memory >> pages >> resident;
    constexpr size_t least_of_all = 5'000; // the answer itself would be twice as many
    EXPECT_LT(resident, memory_is_shadowed ? SIZE_MAX : least_of_all);
    int confirmed = 0;
    for (std::string line = slow.line(); line != "OK" && !line.empty(); line = slow.line()) {
        confirmed += line == "list_OK";
    }
    EXPECT_EQ(confirmed, commands);
    EXPECT_EQ(other.ask("getvol"), "volume: 100\nOK\n"); // the browser's setvol was not carried out

    halves.send("tus\n");
    EXPECT_NE(halves.answer().find("state: stop\n"), std::string::npos);
    std::vector<std::unique_ptr<RawClient>> many(8);
    for (auto &each : many) {
        each = std::make_unique<RawClient>(port_);
    }
    EXPECT_EQ(many.back()->greeting, ""); // one too many
    EXPECT_EQ(other.ask("ping"), "OK\n");
}

} // namespace
} // namespace vantro::mpd
