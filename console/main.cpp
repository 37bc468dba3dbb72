// atcmd-console: the module's client on a Linux host. Loads the module as
// Android's loader does, opens the device and runs command lines from a
// script or a prompt (see `help`).
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "console/interpreter.h"
#include "client/loader.h"
#include "console/prompt.h"
#include "platform/host/state_dir.h"

namespace {

constexpr int kExitUsage = 2;

const char kUsage[] =
    "usage: atcmd-console [--dir DIR] [--variant NAME] [--root DIR] [--script FILE|-]\n"
    "                     [--log FILE|-] [--log-level N] [--capture FILE]\n"
    "  --dir DIR       where atcmdprocess.<variant>.so is (default: this program's\n"
    "                  directory, then its parent)\n"
    "  --variant NAME  the module variant (default: default)\n"
    "  --root DIR      the file-system root the module works under (ATCMD_SYSROOT);\n"
    "                  without it the module uses the real /dev and /sys, and keeps\n"
    "                  its files under ~/.local/state/atcmd ($XDG_STATE_HOME/atcmd)\n"
    "  --script FILE   run FILE's command lines and exit with their status;\n"
    "                  - reads them from standard input\n"
    "  --log FILE      where the module's log lines go (default: atcmd-console.log\n"
    "                  in the root, or in the state directory without one);\n"
    "                  - leaves them on standard error, above the prompt\n"
    "  --log-level N   the module's log_level: -1 nothing, 0 failures .. 4 every\n"
    "                  line of traffic (default 4); `log N` changes it later\n"
    "  --capture FILE  record the module's links and events from its open on, as\n"
    "                  pcapng (tools/wireshark/atcmd.lua reads it); with --root the\n"
    "                  file must lie inside the root\n"
    "Without --script, command lines come from standard input, with a prompt on a\n"
    "terminal. The console prints what the module tells its client on standard\n"
    "output and its own errors on standard error.\n"
    "Exit status: 0 success, 1 a command failed, 2 usage or load error.\n";

struct Options {
    std::string dir, variant = "default", root, script, log, capture;
    long log_level = 4;
    bool help = false;
};

bool parse(int argc, char **argv, Options *o, std::string *error) {
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i], value;
        if (arg == "--help" || arg == "-h") {
            o->help = true;
            continue;
        }
        size_t eq = arg.find('=');
        bool inline_value = arg.compare(0, 2, "--") == 0 && eq != std::string::npos;
        if (inline_value) {
            value = arg.substr(eq + 1);
            arg.resize(eq);
        }
        std::string level;
        std::string *target = arg == "--dir"         ? &o->dir
                              : arg == "--variant"   ? &o->variant
                              : arg == "--root"      ? &o->root
                              : arg == "--script"    ? &o->script
                              : arg == "--log"       ? &o->log
                              : arg == "--capture"   ? &o->capture
                              : arg == "--log-level" ? &level
                                                     : nullptr;
        if (target == nullptr) {
            *error = "unknown option " + arg;
            return false;
        }
        if (!inline_value) {
            if (i + 1 >= argc) {
                *error = arg + " needs a value";
                return false;
            }
            value = argv[++i];
        }
        if (value.empty()) {
            *error = arg + " needs a value";
            return false;
        }
        *target = value;
        char *end = nullptr;
        if (target == &level &&
            ((o->log_level = strtol(value.c_str(), &end, 10)) < -1 || o->log_level > 4 || *end)) {
            *error = "--log-level takes -1 to 4";
            return false;
        }
    }
    return true;
}

// Where the module's log goes by default: next to the tree it works in, or
// in the user's own state directory, never anywhere else on a PC.
bool default_log(const std::string &root, std::string *log, std::string *error) {
    if (!root.empty()) {
        *log = root + "/atcmd-console.log";
        return true;
    }
    char state[PATH_MAX];
    if (atcmd::user_state_dir(state, sizeof state) == nullptr) {
        *error = "no state directory (set HOME or XDG_STATE_HOME), or use --log";
        return false;
    }
    std::error_code ec;
    std::filesystem::create_directories(state, ec);
    std::filesystem::permissions(state, std::filesystem::perms::owner_all, ec);
    *log = std::string(state) + "/atcmd-console.log";
    return true;
}

// The module writes each log line to standard output, to the Android log
// (standard error on a host) and to its own file. The standard output copy
// runs on without line ends and would cut into the console's lines, so it
// goes nowhere; the Android log, one line per statement, goes to `log` (or
// stays on standard error for "-"). The console keeps copies of the
// original streams for itself: *out_fd and *err_fd.
bool route_output(const std::string &log, int *out_fd, int *err_fd, std::string *error) {
    *out_fd = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    *err_fd = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    int null_fd = open("/dev/null", O_WRONLY | O_CLOEXEC);
    bool ok = *out_fd >= 0 && *err_fd >= 0 && null_fd >= 0 && dup2(null_fd, STDOUT_FILENO) >= 0;
    if (null_fd >= 0) close(null_fd);
    if (!ok) {
        *error = "cannot set up standard output";
        return false;
    }
    if (log == "-") return true;
    int log_fd = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (log_fd < 0 || dup2(log_fd, STDERR_FILENO) < 0) {
        *error = "cannot write the log " + log + ": " + strerror(errno);
        if (log_fd >= 0) close(log_fd);
        return false;
    }
    close(log_fd);
    return true;
}

// The build puts the program in build/<x>/console/ and the module in
// build/<x>/; cmake --install puts it in <prefix>/bin/ and the module in
// <prefix>/<libdir>/hw/; a copy may put both side by side.
bool default_dir(const std::string &variant, std::string *dir, std::string *error) {
    char self[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
    if (n <= 0) {
        *error = "cannot find this program's directory; use --dir";
        return false;
    }
    std::string here(self, static_cast<size_t>(n));
    here.resize(here.rfind('/'));
    std::string parent = here.substr(0, here.rfind('/'));
    for (const std::string &candidate : {here, parent, parent + "/" + ATCMD_INSTALL_MODULEDIR}) {
        if (access(atcmd_client::module_path(candidate, variant).c_str(), F_OK) == 0) {
            *dir = candidate;
            return true;
        }
    }
    *error = "no " + atcmd_client::module_path(".", variant).substr(2) + " in " + here + ", " +
             parent + " or " + parent + "/" + ATCMD_INSTALL_MODULEDIR + "; use --dir";
    return false;
}

// The module resolves every absolute path under its root, so a capture file
// given here (relative to the working directory, or absolute) is handed to
// it as the path inside that root.
bool module_capture_path(const std::string &file, std::string *path, std::string *error) {
    char cwd[PATH_MAX];
    std::string abs = file;
    if (file[0] != '/') {
        if (getcwd(cwd, sizeof cwd) == nullptr) {
            *error = "--capture: cannot tell the working directory";
            return false;
        }
        abs = std::string(cwd) + "/" + file;
    }
    const char *root = getenv("ATCMD_SYSROOT");
    if (root == nullptr || *root == '\0') {
        *path = abs;
        return true;
    }
    const std::string prefix = std::string(root) + "/";
    if (abs.compare(0, prefix.size(), prefix) != 0) {
        *error = "--capture " + file + " is not inside the root " + root;
        return false;
    }
    *path = abs.substr(prefix.size() - 1);
    return true;
}

}  // namespace

int main(int argc, char **argv) {
    Options o;
    std::string error;
    if (!parse(argc, argv, &o, &error)) {
        std::cerr << "atcmd-console: " << error << "\n" << kUsage;
        return kExitUsage;
    }
    if (o.help) {
        std::cout << kUsage;
        return 0;
    }
    if (o.dir.empty() && !default_dir(o.variant, &o.dir, &error)) {
        std::cerr << "atcmd-console: " << error << "\n";
        return kExitUsage;
    }
    if (!o.root.empty()) {
        // Absolute, so that the module's paths stay right whatever it does
        // with the working directory.
        char real[PATH_MAX];
        struct stat st;
        if (realpath(o.root.c_str(), real) == nullptr || stat(real, &st) != 0 ||
            !S_ISDIR(st.st_mode)) {
            std::cerr << "atcmd-console: --root " << o.root << " is not a directory\n";
            return kExitUsage;
        }
        setenv("ATCMD_SYSROOT", real, 1);
    } else {
        const char *env = getenv("ATCMD_SYSROOT");
        if (env == nullptr || *env == '\0')
            std::cerr << "atcmd-console: note: no --root and no ATCMD_SYSROOT: the module "
                         "uses the real /dev and /sys\n";
    }

    std::string capture_path;
    if (!o.capture.empty() && !module_capture_path(o.capture, &capture_path, &error)) {
        std::cerr << "atcmd-console: " << error << "\n";
        return kExitUsage;
    }

    std::ifstream file;
    if (!o.script.empty() && o.script != "-") {
        file.open(o.script);
        if (!file) {
            std::cerr << "atcmd-console: cannot read " << o.script << "\n";
            return kExitUsage;
        }
    }

    const char *sysroot = getenv("ATCMD_SYSROOT");
    if (o.log.empty() && !default_log(sysroot != nullptr ? sysroot : "", &o.log, &error)) {
        std::cerr << "atcmd-console: " << error << "\n";
        return kExitUsage;
    }
    int out_fd = -1, err_fd = -1;
    if (!route_output(o.log, &out_fd, &err_fd, &error)) {
        std::cerr << "atcmd-console: " << error << "\n";
        return kExitUsage;
    }
    const std::string log_where = o.log == "-" ? "standard error" : o.log;
    dprintf(err_fd, "atcmd-console: the module's log (level %ld) goes to %s\n", o.log_level,
            log_where.c_str());

    // The terminal outlives the console: service threads print through it
    // until the console is gone.
    atcmd_console::Terminal terminal(out_fd, err_fd);
    const bool prompt = o.script.empty() && isatty(STDIN_FILENO);
    if (prompt && o.log == "-") terminal.capture_stderr();
    atcmd_console::Console console(terminal.out(), terminal.err());
    console.set_log_destination(log_where);
    console.set_module_log_level(static_cast<int>(o.log_level));
    if (!o.capture.empty()) console.set_capture(capture_path);
    console.warn_without_bt_address(true);
    if (!console.open(o.dir, o.variant, &error)) {
        terminal.err() << "atcmd-console: " << error << "\n" << std::flush;
        return kExitUsage;
    }
    if (prompt) return terminal.session(console);
    if (o.script.empty()) return console.run_script(std::cin, /*stop_on_error=*/false);
    return console.run_script(o.script == "-" ? std::cin : file);
}
