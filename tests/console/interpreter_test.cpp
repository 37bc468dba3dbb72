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

}  // namespace
