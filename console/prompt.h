// atcmd-console's output streams and its interactive session: a prompt
// with line editing and history (GNU readline, when the build found it),
// where the module's messages, which arrive at any time, are printed above
// the line being typed instead of through it.
#ifndef ATCMD_CONSOLE_PROMPT_H
#define ATCMD_CONSOLE_PROMPT_H

#include <memory>
#include <ostream>

namespace atcmd_console {

class Console;

class Terminal {
public:
    // The console's output goes to out_fd, its errors to err_fd: copies of
    // the process's standard output and error made before the module's own
    // output was sent elsewhere.
    Terminal(int out_fd, int err_fd);
    ~Terminal();
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    // The streams to build the Console with; they write whole lines, and
    // while the prompt waits for input, above it.
    std::ostream &out();
    std::ostream &err();

    // Sends everything written to standard error (the module's log, when it
    // stays on the terminal) through err(), so that it too appears above the
    // prompt; until destruction.
    bool capture_stderr();

    // Reads and runs command lines at a prompt until quit or the end of
    // input; failed commands do not end it. Returns the exit status: 0 after
    // quit, else 1 if any command failed.
    int session(Console &console);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace atcmd_console

#endif
