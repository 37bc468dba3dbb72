// atcmd-demo: the module at work without a phone. A scripted session of the
// host console (what the phone's HIDL service does), the module, and the
// simulated accessory with its WiFi daemon, under a temporary file-system
// root, printed as a live transcript and ended with a summary of what was
// checked. Exit 0 only when every check held and close ended the service
// the way it does on a phone: the whole process, by SIGKILL.
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include "console/interpreter.h"
#include "demo/sim_commands.h"

namespace {

struct Options {
    std::string dir;      // where atcmdprocess.default.so is
    std::string session;  // the console script
    bool quiet = false;
    bool module_log = false;
};

const char kUsage[] =
    "usage: atcmd-demo [--quiet] [--module-log] [--dir MODULE_DIR] [--session FILE]\n"
    "Runs a scripted session of the host console, the module and the simulated\n"
    "accessory under a temporary root, prints it as it happens, and exits 0 only\n"
    "when every check held.\n";

bool parse(int argc, char **argv, Options *o) {
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if (a == "--quiet") {
            o->quiet = true;
        } else if (a == "--module-log") {
            o->module_log = true;
        } else if ((a == "--dir" || a == "--session") && i + 1 < argc) {
            (a == "--dir" ? o->dir : o->session) = argv[++i];
        } else if (a == "--help") {
            std::cout << kUsage;
            exit(0);
        } else {
            std::cerr << kUsage;
            return false;
        }
    }
    return true;
}

// Where the build puts things: the demo in <build>/demo, the module and the
// session next to the sources.
std::string self_dir() {
    std::error_code ec;
    return std::filesystem::read_symlink("/proc/self/exe", ec).parent_path().string();
}

// Runs the session in this (child) process and reports each check on `report`
// as "ok <line>" or "FAILED <line>"; ends by the session's close, or returns
// when a line failed.
void run_session(const Options &o, const std::string &root, int report) {
    std::ostringstream sink;
    std::ostream &out = o.quiet ? static_cast<std::ostream &>(sink) : std::cout;
    // The module's own log (standard output, the Android log, its file) would
    // drown the transcript; it is off unless asked for. Set before the open,
    // which already logs.
    if (!o.module_log) {
        void *handle = dlopen(atcmd_client::module_path(o.dir).c_str(), RTLD_NOW);
        if (auto *level = handle ? static_cast<int32_t *>(dlsym(handle, "log_level")) : nullptr)
            *level = -1;
    }
    atcmd_console::Console console(out, std::cerr);
    std::string error;
    if (!console.open(o.dir, "default", &error)) {
        std::cerr << "atcmd-demo: " << error << "\n";
        return;
    }
    atcmd_demo::SimCommands sim(root, console);
    console.add_extension(
        [&sim](const std::vector<std::string> &words, std::ostream &, std::string *err) {
            return sim.run(words, err);
        },
        atcmd_demo::SimCommands::is_check);

    std::ifstream in(o.session);
    std::string line;
    while (std::getline(in, line)) {
        const bool check = console.is_check(atcmd_console::Console::split_words(line));
        const int r = console.run_line(line);
        if (check) {
            std::string verdict = (r == atcmd_console::Console::kOk ? "ok " : "FAILED ") + line + "\n";
            if (write(report, verdict.data(), verdict.size()) < 0) return;
        }
        if (r == atcmd_console::Console::kFailed) {
            if (o.quiet) std::cerr << sink.str();
            std::cerr << "atcmd-demo: the session stopped at: " << line << "\n";
            return;
        }
        if (r == atcmd_console::Console::kQuit) return;
    }
}

std::string make_root() {
    char tmpl[] = "/tmp/atcmd-demo-XXXXXX";
    if (mkdtemp(tmpl) == nullptr) return "";
    for (const char *d : {"/dev", "/sys/class/tty", "/sdcard"})
        std::filesystem::create_directories(std::string(tmpl) + d);
    return tmpl;
}

}  // namespace

int main(int argc, char **argv) {
    Options o;
    if (!parse(argc, argv, &o)) return 2;
    const std::string here = self_dir();
    if (o.dir.empty()) o.dir = std::filesystem::path(here).parent_path().string();
    if (o.session.empty()) o.session = ATCMD_DEMO_SESSION;

    const std::string root = make_root();
    if (root.empty()) {
        perror("atcmd-demo: temporary root");
        return 2;
    }
    setenv("ATCMD_SYSROOT", root.c_str(), 1);
    // The store belongs inside the root, where the session's checks look.
    unsetenv("ATCMD_PROPERTY_DIR");
    if (!o.quiet) std::cout << "atcmd-demo: module from " << o.dir << ", root " << root << "\n";

    int checks[2];
    if (pipe(checks) != 0) return 2;
    fflush(nullptr);
    const auto start = std::chrono::steady_clock::now();
    pid_t child = fork();
    if (child == 0) {
        close(checks[0]);
        run_session(o, root, checks[1]);
        fflush(nullptr);
        _exit(1);  // a session that did not end by close went wrong
    }
    close(checks[1]);
    std::string verdicts;
    char buf[4096];
    for (ssize_t n; (n = read(checks[0], buf, sizeof buf)) > 0;) verdicts.append(buf, n);
    close(checks[0]);
    int status = 0;
    waitpid(child, &status, 0);
    const double secs =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::error_code ec;
    std::filesystem::remove_all(root, ec);

    int passed = 0, failed = 0;
    std::istringstream lines(verdicts);
    std::string summary;
    for (std::string v; std::getline(lines, v);) {
        (v.rfind("ok ", 0) == 0 ? passed : failed)++;
        summary += "  " + v + "\n";
    }
    const bool killed = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
    if (!o.quiet || failed > 0 || !killed) {
        std::cout << "\n== Summary\n" << summary;
        std::cout << "  " << (killed ? "ok " : "FAILED ")
                  << "close ended the service process with SIGKILL\n";
    }
    std::cout << "atcmd-demo: " << passed + (killed ? 1 : 0) << " checks passed, "
              << failed + (killed ? 0 : 1) << " failed, in " << static_cast<int>(secs + 0.5)
              << " s\n";
    return failed == 0 && killed && passed > 0 ? 0 : 1;
}
