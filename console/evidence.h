// The verdict of a check in a console session: did enough lines with a
// text arrive in the check's window, and if not, what did arrive instead.
// A window opens just before the command that should cause the evidence
// runs, so nothing from earlier in the session can pass a later check.
// The console judges its client messages this way; the demo judges the
// lines the simulated accessory received the same way.
#ifndef ATCMD_CONSOLE_EVIDENCE_H
#define ATCMD_CONSOLE_EVIDENCE_H

#include <cstddef>
#include <string>
#include <vector>

namespace atcmd_console {

struct Expectation {
    std::string text;   // a line matches when it contains text
    size_t count = 1;   // how many matching lines
    bool exact = false;  // exactly count, not at least count
};

size_t count_matches(const std::vector<std::string> &lines, const std::string &text);

// Enough matches to stop waiting (at least count).
bool enough(const Expectation &want, const std::vector<std::string> &lines);

// Empty when the lines meet the expectation, else why not: what was
// expected, in which window, and what the window held instead, e.g.
//   no line with "+SN (13)" within 5000 ms after `query sn`; seen since:
//     +ERROR (24) seq 13: -110 (reply timed out)
std::string verdict(const Expectation &want, const std::vector<std::string> &seen,
                    const std::string &window, long waited_ms);

}  // namespace atcmd_console

#endif
