// The terminal, taken over for drawing a screen and given back as it was.
#ifndef VANTRO_TOOLS_VANTROCTL_OUTPUT_TERMINAL_H
#define VANTRO_TOOLS_VANTROCTL_OUTPUT_TERMINAL_H

namespace vantro::ctl {

// While it is taken it shows another screen, without a cursor, and each key arrives at once and is
// not echoed. exit() and abort() give it back too. One a process.
class Terminal {
  public:
    Terminal();
    ~Terminal() { give_back(); }
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    // Takes it, or takes it again after other programs have used it; the screen is then empty.
    void take();
    void give_back();

    // Whether standard input is a terminal, whose keys can be read.
    bool has_keys() const;
};

} // namespace vantro::ctl

#endif
