// What this program does as another process. One printed line an event.
#include <grp.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "transport/support.h"

namespace vantro::test {

namespace {

void say(const char *what, int number) {
    std::printf("%s %d\n", what, number);
    std::fflush(stdout);
}

/** serve FLAGS NAME: until it is killed. */
int serve(const std::vector<std::string> &arguments) {
    Server server(std::atoi(arguments[1].c_str()));
    say("added", server.add(arguments[2].c_str()));
    server.start(20);
    for (int seen = 0;;) {
        script.wait([&] { return script.blocked > seen; });
        say("blocked", ++seen);
    }
}

/** ask NAME OPEN-CODE CODE: opens the service, and asks once. */
int ask(const std::vector<std::string> &arguments) {
    const auto code = [&](size_t at) { return static_cast<uint16_t>(std::stoi(arguments[at])); };
    const Client client(arguments[1].c_str(), code(2));
    say("open", client.error);
    if (client.client)
        say("asked", msgclient_putget(client, nullptr, 0, nullptr, 0, nullptr, code(3)));
    return 0;
}

/** as UID GID NAME GROUP...: opens the service as somebody else. */
int ask_as(const std::vector<std::string> &arguments) {
    std::vector<gid_t> groups;
    for (size_t i = 4; i < arguments.size(); i++)
        groups.push_back(static_cast<gid_t>(std::stoul(arguments[i])));
    if (setgroups(groups.size(), groups.data()) != 0 ||
        setgid(static_cast<gid_t>(std::stoul(arguments[2]))) != 0 ||
        setuid(static_cast<uid_t>(std::stoul(arguments[1]))) != 0)
        return 1;
    const Client client(arguments[3].c_str());
    say("open", client.error);
    return 0;
}

} // namespace

int peer_main(const std::vector<std::string> &arguments) {
    if (arguments[0] == "serve")
        return serve(arguments);
    return arguments[0] == "ask" ? ask(arguments) : ask_as(arguments);
}

} // namespace vantro::test
