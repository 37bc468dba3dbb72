#include "console/evidence.h"

namespace atcmd_console {
namespace {

// A failure names what the window held; a long window shows its last lines.
constexpr size_t kShownLines = 12;

}  // namespace

size_t count_matches(const std::vector<std::string> &lines, const std::string &text) {
    size_t n = 0;
    for (const std::string &line : lines) n += line.find(text) != std::string::npos;
    return n;
}

bool enough(const Expectation &want, const std::vector<std::string> &lines) {
    return count_matches(lines, want.text) >= want.count;
}

std::string verdict(const Expectation &want, const std::vector<std::string> &seen,
                    const std::string &window, long waited_ms) {
    const size_t n = count_matches(seen, want.text);
    if (want.exact ? n == want.count : n >= want.count) return "";
    std::string why;
    if (want.count == 1 && !want.exact)
        why = "no line with \"" + want.text + "\"";
    else
        why = std::to_string(n) + " lines with \"" + want.text + "\", not " +
              (want.exact ? "exactly " : "at least ") + std::to_string(want.count);
    why += " within " + std::to_string(waited_ms) + " ms after `" + window + "`; ";
    if (seen.empty()) return why + "nothing arrived since";
    why += std::to_string(seen.size()) + " arrived since";
    const size_t first = seen.size() > kShownLines ? seen.size() - kShownLines : 0;
    why += first > 0 ? ", the last " + std::to_string(kShownLines) + ":" : ":";
    for (size_t i = first; i < seen.size(); ++i) why += "\n    " + seen[i];
    return why;
}

}  // namespace atcmd_console
