// Command-line handling that needs no module: words, comments against the
// '#' of AT lines, results, and the way extensions are offered lines.
#include <gtest/gtest.h>

#include <sstream>

#include "console/interpreter.h"

namespace {

using atcmd_console::Console;
using Words = std::vector<std::string>;

TEST(ConsoleLine, RunsLinesWithoutAModule) {
    const struct {
        const char *line;
        int rc;
        const char *out;
    } rows[] = {
        {"  # a comment", Console::kOk, ""},
        {"echo a  \"b\" # not this", Console::kOk, "a  \"b\"\n"},
        {"quit", Console::kQuit, ""},
        {"bogus", Console::kFailed, ""},
        {"sim AT+SN?#13&2 # comment", Console::kOk, "sim:AT+SN?#13&2\n"},
        {"sim \"a  b\" c", Console::kOk, "sim:a  b,c\n"},
        {"sim fail", Console::kFailed, "sim:fail\n"},
        {"status", Console::kFailed, ""},  // no device open
    };
    for (const auto &r : rows) {
        std::ostringstream out, err;
        Console c(out, err);
        c.add_extension([](const Words &w, std::ostream &o, std::string *error) {
            if (w[0] != "sim") return false;
            o << "sim:" << w[1] << (w.size() > 2 ? "," + w[2] : "") << "\n";
            if (w[1] == "fail") *error = "failed";
            return true;
        });
        EXPECT_EQ(c.run_line(r.line), r.rc) << r.line;
        EXPECT_EQ(out.str(), r.out) << r.line;
        EXPECT_EQ(err.str().empty(), r.rc != Console::kFailed) << r.line << ": " << err.str();
    }
}

// A check's window opens before the acting command before it; a mark holds
// its window over acting commands up to the first check. The failure names
// the command that opened the window.
TEST(ConsoleLine, ChecksLookOnlyPastTheirWindow) {
    std::ostringstream out, err;
    Console c(out, err);
    c.add_extension([](const Words &w, std::ostream &, std::string *) { return w[0] == "act"; });
    const std::pair<const char *, const char *> rows[] = {
        {"expect x 0", "after `start`"},     {"act 1", nullptr},
        {"echo shows only", nullptr},        {"expect x 0", "after `act 1`"},
        {"mark", nullptr},                   {"act 2", nullptr},
        {"act 3", nullptr},                  {"expect x 0", "after `mark`"},
        {"expect-count 0 x 0", nullptr},     {"act 4", nullptr},
        {"expect x 0", "after `act 4`"},
    };
    for (const auto &r : rows) {
        err.str("");
        EXPECT_EQ(c.run_line(r.first), r.second ? Console::kFailed : Console::kOk) << r.first;
        if (r.second) {
            EXPECT_NE(err.str().find(r.second), std::string::npos) << err.str();
        }
    }
}

}  // namespace
