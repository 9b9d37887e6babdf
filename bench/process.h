// The other processes of a run: the servers that it starts, and the watcher, which ends after it.
#ifndef VANTRO_BENCH_PROCESS_H
#define VANTRO_BENCH_PROCESS_H

#include <string>

#include <sched.h>

#include "bench/child.h"

namespace vantro::bench {

// While the object lives, this process runs on one processor, and the children that it starts run
// on another; on a machine with one processor nothing changes. Otherwise the scheduler puts the two
// sides of an exchange on one processor or on two, and the times differ by a factor of several. So
// a row could be measured on one processor, and the floor that it is compared with on two.
class Apart {
  public:
    Apart();
    ~Apart();
    Apart(const Apart &) = delete;
    Apart &operator=(const Apart &) = delete;

  private:
    cpu_set_t before_;
};

// While the object lives, this process and the children that it starts run on one processor.
class Together {
  public:
    Together();
    ~Together();
    Together(const Together &) = delete;
    Together &operator=(const Together &) = delete;

  private:
    cpu_set_t before_;
};

// Lets the calling thread run on every processor again, also below an Apart.
void run_anywhere();

// The path of a program in the same folder as this one; with an empty name, of this one.
std::string program_beside(const std::string &name);

// Splits off the process that measures, and returns only in it, with XDG_RUNTIME_DIR naming a
// fresh private directory. The calling process becomes its watcher: it passes signals on, and once
// the measuring process and all it started are gone, however they ended, it removes the directory
// and ends with that process's status.
// @return the private directory.
std::string enter_private_runtime();

} // namespace vantro::bench

#endif
