// The terminal, taken over for a screen of one's own and given back as it was.
#ifndef VANTRO_TOOLS_VANTROCTL_OUTPUT_TERMINAL_H
#define VANTRO_TOOLS_VANTROCTL_OUTPUT_TERMINAL_H

namespace vantro::ctl {

// While it is taken: another screen without cursor, and keys that come one by one without being
// shown. Also exit() and abort() give it back. One a process.
class Terminal {
  public:
    Terminal();
    ~Terminal() { give_back(); }
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    // Takes it, also again where others have used it meanwhile; the screen is empty then.
    void take();
    void give_back();

    // Whether standard input is a terminal, whose keys can be read.
    bool has_keys() const;
};

} // namespace vantro::ctl

#endif
