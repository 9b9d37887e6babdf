// The tool under test, alone, at a terminal, and with a vantrod of its own.
#ifndef VANTRO_TESTS_TOOLS_VANTROCTL_VANTROCTL_PROCESS_H
#define VANTRO_TESTS_TOOLS_VANTROCTL_VANTROCTL_PROCESS_H

#include <algorithm>
#include <memory>

#include <pty.h>

#include "tests/support/music.h"
#include "tests/support/process.h"

namespace vantro::ctl {

class Vantroctl : public test::RuntimeDirectory {
  protected:
    // Runs the tool; its output, with its errors, is left in `said_`.
    int run(
        std::vector<std::string> arguments, const std::function<void()> &prepare = [] {}) {
        arguments.insert(arguments.begin(), VANTROCTL);
        test::Process tool(arguments, prepare);
        said_ = tool.rest();
        return tool.wait();
    }

    // The same on a terminal of 24 lines and that many columns. Errors do not go there.
    int on_terminal(unsigned short columns, std::vector<std::string> arguments) {
        winsize size = {};
        size.ws_row = 24;
        size.ws_col = columns;
        int master = -1;
        int slave = -1;
        EXPECT_EQ(openpty(&master, &slave, nullptr, nullptr, &size), 0);
        arguments.insert(arguments.begin(), VANTROCTL);
        test::Process tool(arguments, [=] {
            setenv("TERM", "xterm", 1);
            dup2(slave, STDOUT_FILENO);
        });
        close(slave);
        said_.clear();
        for (char byte; read(master, &byte, 1) > 0;) {
            said_ += byte == '\r' ? "" : std::string(1, byte);
        }
        close(master);
        return tool.wait();
    }

    // Returns once its music is read.
    void start_vantrod(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), VANTROD);
        if (std::find(arguments.begin(), arguments.end(), "--audio") == arguments.end()) {
            arguments.insert(arguments.end(), {"--audio", "clock"});
        }
        vantrod_ = std::make_unique<test::Process>(arguments);
        std::string line = vantrod_->line();
        while (!line.empty() && line.find("vantrod: scanned") != 0) {
            line = vantrod_->line(); // its log, if no log daemon listens
        }
        ASSERT_FALSE(line.empty());
    }

    void end_vantrod() {
        vantrod_->kill(SIGTERM);
        EXPECT_EQ(vantrod_->wait(), 0);
        vantrod_.reset();
    }

    std::string said_;

  private:
    std::unique_ptr<test::Process> vantrod_;
};

} // namespace vantro::ctl

#endif
