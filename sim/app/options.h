// atcmd-sim's command line and the small text helpers its commands share.
#ifndef ATSIM_APP_OPTIONS_H
#define ATSIM_APP_OPTIONS_H

#include <string>
#include <utility>
#include <vector>

namespace atsim_app {

struct Options {
    std::string root;  // absolute, without a trailing '/'
    bool uart = false;
    int usb = 0;
    std::string product = "6f2a/4c07/100";
    std::vector<std::pair<std::string, std::string>> values;  // identity overrides, in order
    std::vector<std::string> silent;
    long report_ms = 0;  // 0: no report schedule
    std::string report_line;
    bool daemon = false;
    long heartbeat_ms = 0;  // 0: the daemon's own default
    int platform = 1;
    bool quiet = false;
    bool stay = false;
    bool help = false;
};

// False on a usage error, with the reason in *error.
bool parse_options(int argc, char **argv, Options *out, std::string *error);
extern const char kUsage[];
extern const char kCommands[];

// The whole of s as a decimal number within [min, max].
bool parse_number(const std::string &s, long min, long max, long *out);
// "sn" and "+SN" both name the accessory's "+SN", as the phone's commands do.
std::string command_name(std::string name);
std::string with_crlf(std::string text);
// The reverse of atsim::escape, so a printed line can be typed back:
// \r \n \t \\ and \xNN.
std::string unescape(const std::string &text);

}  // namespace atsim_app

#endif
