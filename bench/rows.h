// The one line format every bench program prints for tools/bench.sh's
// table: ROW|section|measure|value|baseline|ratio|target|met.
#ifndef ATCMD_BENCH_ROWS_H
#define ATCMD_BENCH_ROWS_H

#include <stdarg.h>
#include <stdio.h>

#include <string>

namespace bench_rows {

inline void print_row(FILE *out, const std::string &section, const std::string &measure,
                      const std::string &value, const std::string &baseline,
                      const std::string &ratio, const std::string &target, const std::string &met) {
    fprintf(out, "ROW|%s|%s|%s|%s|%s|%s|%s\n", section.c_str(), measure.c_str(), value.c_str(),
            baseline.c_str(), ratio.c_str(), target.c_str(), met.c_str());
    fflush(out);
}

inline std::string fmt(const char *f, ...) __attribute__((format(printf, 1, 2)));
inline std::string fmt(const char *f, ...) {
    char buf[512];
    va_list ap;
    va_start(ap, f);
    vsnprintf(buf, sizeof buf, f, ap);
    va_end(ap);
    return buf;
}

}  // namespace bench_rows

#endif
