// Takes over the terminal for drawing a screen, and restores it.
#ifndef VANTRO_TOOLS_VANTROCTL_OUTPUT_TERMINAL_H
#define VANTRO_TOOLS_VANTROCTL_OUTPUT_TERMINAL_H

namespace vantro::ctl {

// While it is taken, the terminal shows its alternate screen, without a cursor, and each key
// arrives at once and is not echoed. exit() and abort() restore it too. One object a process.
class Terminal {
  public:
    Terminal();
    ~Terminal() { give_back(); }
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    // Takes the terminal, also again after other programs have used it; the screen is then empty.
    void take();
    void give_back();

    // Whether standard input is a terminal, whose keys can be read.
    bool has_keys() const;
};

} // namespace vantro::ctl

#endif
