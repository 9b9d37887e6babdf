// Child processes, and failures that end a run. The programs in bench/peers/ use this file too, so
// it needs only the C and C++ libraries.
#ifndef VANTRO_BENCH_CHILD_H
#define VANTRO_BENCH_CHILD_H

#include <string>
#include <vector>

#include <sys/types.h>

namespace vantro::bench {

// Prints what failed and ends the program with 1.
[[noreturn]] void fail(const std::string &what);

// fail() with errno in the text.
[[noreturn]] void fail_errno(const std::string &what);

// Confines the calling thread to a processor.
void run_on(int processor);

// The processor on which children run; -1: anywhere.
extern int child_processor;

// A child process that ends with its owner. The kernel ends it if this process dies.
class Child {
  public:
    enum class Errors { kept, passed_on };

    // Starts a program, which is searched for in $PATH if its name has no slash.
    // @param inherited a descriptor that the program keeps under the same number, or -1.
    // @param errors    kept: what it writes to standard error is printed only when it fails.
    explicit Child(std::vector<std::string> arguments, int inherited = -1,
                   Errors errors = Errors::kept);
    ~Child();
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    // Blocks until the program has printed a line with `text`; fails the run when it ends first.
    void wait_for_line(const std::string &text);

    pid_t pid() const { return pid_; }

  private:
    std::string kept_errors() const;

    std::string name_;
    pid_t pid_ = -1;
    int output_ = -1;
    int errors_ = -1; // -1 if they are passed on
};

} // namespace vantro::bench

#endif
