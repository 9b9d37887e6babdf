// Writes long lists: to standard output as they arrive; on a terminal, through $PAGER if they are
// longer than the screen.
#ifndef VANTRO_TOOLS_VANTROCTL_OUTPUT_PAGER_H
#define VANTRO_TOOLS_VANTROCTL_OUTPUT_PAGER_H

#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

namespace vantro::ctl {

// A process has one at a time.
class Pager {
  public:
    // @param allowed false: always write to standard output, without a pager.
    explicit Pager(bool allowed);
    ~Pager();
    Pager(const Pager &) = delete;
    Pager &operator=(const Pager &) = delete;

    // @return false once the reader has closed its end, which is no failure.
    // @throws Failure.
    bool write(std::string_view lines);

    // Writes what is still held back and waits for the pager to end. @throws Failure.
    void finish();

  private:
    bool send(std::string_view text);
    void start();
    int stop();

    std::string command_;
    std::string held_; // Lines that may fit on the screen, if no pager is needed.
    int rows_ = 0;     // Rows that they take.
    std::FILE *pipe_ = nullptr;
    bool direct_ = true; // Lines are written at once.
    bool wanted_ = true;
};

} // namespace vantro::ctl

#endif
