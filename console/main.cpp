// atcmd-console: the module's client on a Linux host. Loads the module as
// Android's loader does, opens the device and runs command lines from a
// script or a prompt (see `help`).
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "console/interpreter.h"
#include "console/loader.h"
#include "console/prompt.h"

namespace {

constexpr int kExitUsage = 2;

const char kUsage[] =
    "usage: atcmd-console [--dir DIR] [--variant NAME] [--root DIR] [--script FILE|-]\n"
    "  --dir DIR       where atcmdprocess.<variant>.so is (default: this program's\n"
    "                  directory, then its parent)\n"
    "  --variant NAME  the module variant (default: default)\n"
    "  --root DIR      the file-system root the module works under (ATCMD_SYSROOT);\n"
    "                  without it the module uses the real /dev and /sys\n"
    "  --script FILE   run FILE's command lines and exit with their status;\n"
    "                  - reads them from standard input\n"
    "Without --script, command lines come from standard input, with a prompt on a\n"
    "terminal. The module's log goes to standard error (2>FILE keeps it apart).\n"
    "Exit status: 0 success, 1 a command failed, 2 usage or load error.\n";

struct Options {
    std::string dir, variant = "default", root, script;
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
        std::string *target = arg == "--dir"       ? &o->dir
                              : arg == "--variant" ? &o->variant
                              : arg == "--root"    ? &o->root
                              : arg == "--script"  ? &o->script
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
    }
    return true;
}

// The build puts the program in build/<x>/console/ and the module in
// build/<x>/, an install may put both side by side.
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
    for (const std::string &candidate : {here, parent}) {
        if (access(atcmd_console::module_path(candidate, variant).c_str(), F_OK) == 0) {
            *dir = candidate;
            return true;
        }
    }
    *error = "no " + atcmd_console::module_path(".", variant).substr(2) + " in " + here +
             " or " + parent + "; use --dir";
    return false;
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

    std::ifstream file;
    if (!o.script.empty() && o.script != "-") {
        file.open(o.script);
        if (!file) {
            std::cerr << "atcmd-console: cannot read " << o.script << "\n";
            return kExitUsage;
        }
    }

    // The module prints each log line to standard output as well as to the
    // log (standard error on a host), without line ends; that copy would cut
    // into the console's lines, so the console keeps standard output to
    // itself and the module's copy goes nowhere.
    int out_fd = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    int null_fd = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (out_fd < 0 || null_fd < 0 || dup2(null_fd, STDOUT_FILENO) < 0) {
        std::cerr << "atcmd-console: cannot set up standard output\n";
        return kExitUsage;
    }
    close(null_fd);

    // The terminal outlives the console: service threads print through it
    // until the console is gone.
    atcmd_console::Terminal terminal(out_fd);
    const bool prompt = o.script.empty() && isatty(STDIN_FILENO);
    if (prompt) terminal.capture_stderr();
    atcmd_console::Console console(terminal.out(), terminal.err());
    if (!console.open(o.dir, o.variant, &error)) {
        std::cerr << "atcmd-console: " << error << "\n";
        return kExitUsage;
    }
    if (prompt) return terminal.session(console);
    if (o.script.empty()) return console.run_script(std::cin, /*stop_on_error=*/false);
    return console.run_script(o.script == "-" ? std::cin : file);
}
