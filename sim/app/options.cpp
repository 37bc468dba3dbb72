#include "sim/app/options.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace atsim_app {

const char kUsage[] =
    "usage: atcmd-sim --root DIR [options]\n"
    "The accessory's MCU on a pseudo-terminal under DIR (and, with --daemon, the\n"
    "HID daemon on DIR/dev/fifo_*), for the module's host console to talk to.\n"
    "  --root DIR            tree holding dev/ and sys/ (default: $ATCMD_SYSROOT)\n"
    "  --usb N               present the MCU as dev/ttyACM<N> (default 0)\n"
    "  --uart                present it as dev/ttyS4 instead\n"
    "  --product VID/PID/BCD USB PRODUCT line (default 6f2a/4c07/100)\n"
    "  --identity FILE       NAME=value lines overriding the default answers\n"
    "  --set NAME=VALUE      one such override (repeatable)\n"
    "  --silent NAME         never answer that command (repeatable)\n"
    "  --report-every MS LINE  send LINE every MS milliseconds\n"
    "  --platform 1|2        tail of the accessory's own questions (&1 or &2)\n"
    "  --daemon              also play the HID daemon, its WiFi peer answering\n"
    "                        as the accessory does; status texts go to\n"
    "                        DIR/dev/hid_status, one line each, while a reader\n"
    "                        has it open (dropped otherwise); after \"exit\" it\n"
    "                        stays stopped until vendor.hid_cmd is written again\n"
    "  --heartbeat MS        the daemon's heartbeat period\n"
    "  --stay                keep running after the end of standard input\n"
    "  --quiet               print nothing but errors\n"
    "  --help                this text and the commands\n";

const char kCommands[] =
    "commands (one per line on standard input, '#' starts a comment line):\n"
    "  send TEXT             TEXT to the phone (\\r\\n added if missing; \\r \\n \\xNN allowed)\n"
    "  split CHUNK TEXT      the same, CHUNK bytes at a time\n"
    "  garbage N | overlong N  noise lines\n"
    "  report MS LINE | report off\n"
    "  silence NAME | answer NAME  stop / resume answering a command\n"
    "  set NAME VALUE        change an answer\n"
    "  ask state|version|btmac  the accessory's own questions to the phone\n"
    "  unplug | plug\n"
    "  peer TEXT             (--daemon) bytes from the WiFi peer to the module\n"
    "  status TEXT           (--daemon) a daemon status text\n"
    "  heartbeats off|on     (--daemon)\n"
    "  help | quit\n";

bool parse_number(const std::string &s, long min, long max, long *out) {
    if (s.empty() || !std::isdigit(static_cast<unsigned char>(s[0]))) return false;
    errno = 0;
    char *end = nullptr;
    long v = std::strtol(s.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || v < min || v > max) return false;
    *out = v;
    return true;
}

std::string command_name(std::string name) {
    for (char &c : name) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    if (name.empty() || name[0] != '+') name.insert(0, "+");
    return name;
}

std::string with_crlf(std::string text) {
    if (text.size() < 2 || text.compare(text.size() - 2, 2, "\r\n") != 0) text += "\r\n";
    return text;
}

std::string unescape(const std::string &text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            out += text[i];
            continue;
        }
        char c = text[++i];
        if (c == 'r') {
            out += '\r';
        } else if (c == 'n') {
            out += '\n';
        } else if (c == 't') {
            out += '\t';
        } else if (c == 'x' && i + 2 < text.size() &&
                   std::isxdigit(static_cast<unsigned char>(text[i + 1])) &&
                   std::isxdigit(static_cast<unsigned char>(text[i + 2]))) {
            out += static_cast<char>(std::strtol(text.substr(i + 1, 2).c_str(), nullptr, 16));
            i += 2;
        } else {
            out += c;  // "\\" and anything unknown: the character itself
        }
    }
    return out;
}

namespace {

std::string trim(const std::string &s) {
    size_t b = s.find_first_not_of(" \t\r\n");
    if (b == std::string::npos) return "";
    size_t e = s.find_last_not_of(" \t\r\n");
    return s.substr(b, e - b + 1);
}

bool add_value(const std::string &assignment, Options *o) {
    size_t eq = assignment.find('=');
    std::string name = trim(assignment.substr(0, eq));
    if (eq == std::string::npos || name.empty() || name == "+") return false;
    o->values.emplace_back(command_name(name), trim(assignment.substr(eq + 1)));
    return true;
}

bool read_identity(const std::string &path, Options *o, std::string *error) {
    std::ifstream in(path);
    if (!in) {
        *error = "cannot read " + path;
        return false;
    }
    std::string line;
    for (int n = 1; std::getline(in, line); ++n) {
        line = trim(line);
        if (line.empty() || line[0] == '#') continue;
        if (!add_value(line, o)) {
            *error = path + ":" + std::to_string(n) + ": expected NAME=value";
            return false;
        }
    }
    return true;
}

// VID/PID/BCD in hex, as the kernel writes the uevent's PRODUCT line.
bool valid_product(const std::string &p) {
    int parts = 1;
    bool digits = false;
    for (char c : p) {
        if (c == '/') {
            if (!digits) return false;
            ++parts;
            digits = false;
        } else if (std::isxdigit(static_cast<unsigned char>(c))) {
            digits = true;
        } else {
            return false;
        }
    }
    return parts == 3 && digits;
}

}  // namespace

bool parse_options(int argc, char **argv, Options *o, std::string *error) {
    bool usb_given = false;
    for (int i = 1; i < argc; ++i) {
        const std::string opt = argv[i];
        auto arg = [&](std::string *v) {
            if (i + 1 >= argc) {
                *error = opt + " needs a value";
                return false;
            }
            *v = argv[++i];
            return true;
        };
        auto number = [&](long min, long max, long *v) {
            std::string s;
            if (!arg(&s)) return false;
            if (parse_number(s, min, max, v)) return true;
            *error = opt + ": bad number " + s;
            return false;
        };
        std::string s;
        long n = 0;
        if (opt == "--help" || opt == "-h") {
            o->help = true;
        } else if (opt == "--root") {
            if (!arg(&o->root)) return false;
        } else if (opt == "--usb") {
            if (!number(0, 255, &n)) return false;
            o->usb = static_cast<int>(n);
            usb_given = true;
        } else if (opt == "--uart") {
            o->uart = true;
        } else if (opt == "--product") {
            if (!arg(&o->product)) return false;
            if (!valid_product(o->product)) {
                *error = "--product: expected VID/PID/BCD in hex, got " + o->product;
                return false;
            }
        } else if (opt == "--identity") {
            if (!arg(&s) || !read_identity(s, o, error)) return false;
        } else if (opt == "--set") {
            if (!arg(&s)) return false;
            if (!add_value(s, o)) {
                *error = "--set: expected NAME=VALUE, got " + s;
                return false;
            }
        } else if (opt == "--silent") {
            if (!arg(&s)) return false;
            o->silent.push_back(command_name(s));
        } else if (opt == "--report-every") {
            if (!number(1, 86400000, &o->report_ms) || !arg(&o->report_line)) return false;
        } else if (opt == "--platform") {
            if (!number(1, 2, &n)) return false;
            o->platform = static_cast<int>(n);
        } else if (opt == "--daemon") {
            o->daemon = true;
        } else if (opt == "--heartbeat") {
            if (!number(1, 86400000, &o->heartbeat_ms)) return false;
        } else if (opt == "--stay") {
            o->stay = true;
        } else if (opt == "--quiet") {
            o->quiet = true;
        } else {
            *error = "unknown option " + opt;
            return false;
        }
    }
    if (o->help) return true;
    if (o->uart && usb_given) {
        *error = "--usb and --uart exclude each other";
        return false;
    }
    if (o->heartbeat_ms != 0 && !o->daemon) {
        *error = "--heartbeat needs --daemon";
        return false;
    }
    if (o->root.empty()) {
        const char *env = std::getenv("ATCMD_SYSROOT");
        if (env != nullptr) o->root = env;
    }
    if (o->root.empty()) {
        *error = "--root DIR is required (or ATCMD_SYSROOT)";
        return false;
    }
    std::error_code ec;
    if (!fs::is_directory(o->root, ec)) {
        *error = "not a directory: " + o->root;
        return false;
    }
    o->root = fs::absolute(o->root, ec).lexically_normal().string();
    while (o->root.size() > 1 && o->root.back() == '/') o->root.pop_back();
    return true;
}

}  // namespace atsim_app
