// atcmd-sim: the accessory (and optionally the HID daemon) as a program of its
// own, so that a person can drive the module's host console in one terminal
// and the far end of its links in another, both under one file-system root.
#include <cutils/properties.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include "platform/property_store.h"
#include "sim/app/options.h"
#include "sim/sim.h"

namespace fs = std::filesystem;
using atsim_app::Options;

namespace {

// Transcript events arrive on the simulator's threads; one lock keeps every
// printed line whole.
std::mutex g_out_mu;

void print(FILE *f, const std::string &text) {
    std::lock_guard<std::mutex> lk(g_out_mu);
    std::fwrite(text.data(), 1, text.size(), f);
    std::fflush(f);
}

void error(const std::string &msg) { print(stderr, "atcmd-sim: " + msg + "\n"); }

// The daemon's status texts for the console, another process: one line each
// on a FIFO, written only while a reader has it open. Texts written with
// nobody reading would wait in the pipe and reach the next console session
// as a stale burst; they are dropped instead, and said so once.
class StatusFifo {
public:
    ~StatusFifo() { close(); }

    bool open(const std::string &path, std::string *why) {
        path_ = path;
        if (mkfifo(path.c_str(), 0600) == 0) {
            created_ = true;
        } else if (errno != EEXIST) {
            *why = "cannot create " + path + ": " + std::strerror(errno);
            return false;
        }
        struct stat st {};
        if (stat(path.c_str(), &st) != 0 || !S_ISFIFO(st.st_mode)) {
            *why = path + " exists and is not a FIFO";
            return false;
        }
        return true;
    }

    void put(const std::string &text, atsim::Transcript &t) {
        // Without a reader, a non-blocking open for writing fails (ENXIO).
        if (fd_ < 0) fd_ = ::open(path_.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        if (fd_ < 0) {
            if (reader_) t.add("note", "hid_status has no reader: status texts dropped until one opens it");
            reader_ = false;
            return;
        }
        reader_ = true;
        const std::string line = text + "\n";
        ssize_t w;
        do {
            w = write(fd_, line.data(), line.size());
        } while (w < 0 && errno == EINTR);
        if (w == static_cast<ssize_t>(line.size())) return;
        if (w < 0 && errno == EPIPE) {
            // The reader went; closing frees what it left unread.
            ::close(fd_);
            fd_ = -1;
            t.add("note", "hid_status reader gone, dropped: " + text);
        } else if (w < 0 && errno == EAGAIN) {
            t.add("note", "hid_status full, dropped: " + text);
        } else if (w >= 0) {
            t.add("note", "hid_status took only part of: " + text);
        } else {
            t.add("note", "hid_status write failed (" + std::string(std::strerror(errno)) +
                              "): " + text);
        }
    }

    // A FIFO that was there before belongs to whoever made it.
    void close() {
        if (fd_ >= 0) ::close(fd_);
        fd_ = -1;
        if (created_) unlink(path_.c_str());
        created_ = false;
    }

private:
    std::string path_;
    int fd_ = -1;
    bool reader_ = true;  // until a write finds none
    bool created_ = false;
};

std::pair<std::string, std::string> split_word(const std::string &s) {
    size_t b = s.find_first_not_of(" \t");
    if (b == std::string::npos) return {"", ""};
    size_t e = s.find_first_of(" \t", b);
    if (e == std::string::npos) return {s.substr(b), ""};
    size_t r = s.find_first_not_of(" \t", e);
    return {s.substr(b, e - b), r == std::string::npos ? "" : s.substr(r)};
}

class Sim {
public:
    explicit Sim(const Options &o)
        : o_(o), id_(identity(o)), silenced_(o.silent.begin(), o.silent.end()),
          acc_(o.root, t_, id_) {
        if (!o_.quiet) t_.set_listener(print_event);
    }

    // Exit status 0 when everything is up, else 1 (the reason printed).
    int start() {
        t_.add("note", "root " + o_.root);
        for (const std::string &name : silenced_) acc_.silence(name);
        if (o_.daemon && !start_daemon()) return 1;
        if (o_.report_ms > 0) report_ = {o_.report_ms, atsim_app::with_crlf(o_.report_line)};
        const bool plugged = plug();
        peer_follows();
        return plugged ? 0 : 1;
    }

    // Cable out before the daemon goes, as when the accessory is switched off.
    void stop() {
        acc_.unplug();
        daemon_.reset();
        status_.close();
    }

    // False for "quit".
    bool command(std::string line) {
        while (!line.empty() && (line.back() == '\r' || line.back() == '\n')) line.pop_back();
        auto [cmd, rest] = split_word(line);
        if (cmd.empty() || cmd[0] == '#') return true;
        auto [arg, tail] = split_word(rest);
        long n = 0;
        if (cmd == "quit" || cmd == "exit") return false;
        if (cmd == "help") {
            print(stdout, atsim_app::kCommands);
        } else if (cmd == "send" && !rest.empty()) {
            acc_.send(atsim_app::with_crlf(atsim_app::unescape(rest)));
        } else if (cmd == "split" && atsim_app::parse_number(arg, 1, 4096, &n) && !tail.empty()) {
            acc_.send_split(atsim_app::with_crlf(atsim_app::unescape(tail)),
                            static_cast<size_t>(n));
        } else if (cmd == "garbage" && tail.empty() && atsim_app::parse_number(arg, 0, 65536, &n)) {
            acc_.send_garbage(static_cast<size_t>(n));
        } else if (cmd == "overlong" && tail.empty() &&
                   atsim_app::parse_number(arg, 0, 65536, &n)) {
            acc_.send_overlong(static_cast<size_t>(n));
        } else if (cmd == "report" && rest == "off") {
            report_ = {};
            acc_.stop_reports();
            t_.add("note", "reports off");
        } else if (cmd == "report" && atsim_app::parse_number(arg, 1, 86400000, &n) &&
                   !tail.empty()) {
            report_ = {n, atsim_app::with_crlf(atsim_app::unescape(tail))};
            t_.add("note", "report every " + arg + " ms: " + tail);
            if (acc_.plugged()) acc_.report_every(std::chrono::milliseconds(n), report_.second);
        } else if ((cmd == "silence" || cmd == "answer") && !arg.empty() && tail.empty()) {
            const std::string name = atsim_app::command_name(arg);
            acc_.silence(name, cmd == "silence");
            if (cmd == "silence")
                silenced_.insert(name);
            else
                silenced_.erase(name);
            peer_follows();
            t_.add("note", cmd + " " + name);
        } else if (cmd == "set" && !arg.empty()) {
            const std::string name = atsim_app::command_name(arg);
            acc_.set_value(name, tail);
            id_.values[name] = tail;
            peer_follows();
            t_.add("note", "set " + name + "=" + tail);
        } else if (cmd == "ask" && ask(rest)) {
        } else if (cmd == "unplug" && rest.empty()) {
            if (acc_.plugged())
                acc_.unplug();
            else
                error("not plugged");
            peer_follows();
        } else if (cmd == "plug" && rest.empty()) {
            if (acc_.plugged())
                error("already plugged");
            else
                plug();
            peer_follows();
        } else if ((cmd == "peer" || cmd == "status" || cmd == "heartbeats") && !daemon_) {
            error(cmd + " needs --daemon");
        } else if (cmd == "peer" && !rest.empty()) {
            daemon_->send_to_module(atsim_app::with_crlf(atsim_app::unescape(rest)));
        } else if (cmd == "status" && !rest.empty()) {
            daemon_->emit_status(rest);
        } else if (cmd == "heartbeats" && (rest == "on" || rest == "off")) {
            daemon_->pause_heartbeats(rest == "off");
        } else {
            error("bad command: " + line + " (try help)");
        }
        return true;
    }

private:
    static atsim::Identity identity(const Options &o) {
        atsim::Identity id = atsim::Identity::defaults();
        for (const auto &[name, value] : o.values) id.values[name] = value;
        return id;
    }

    static void print_event(const atsim::Event &e) {
        char stamp[32];
        std::snprintf(stamp, sizeof stamp, "%.3f ", e.t);
        print(stdout, stamp + e.who + " " + atsim::escape(e.text) + "\n");
    }

    bool start_daemon() {
        std::string why;
        const std::string path = o_.root + "/dev/hid_status";
        if (!status_.open(path, &why)) {
            error("hid daemon: " + why);
            return false;
        }
        // The module's own property functions: with the host store they are
        // what the module's process sees too.
        char area[PATH_MAX];
        daemon_ = std::make_unique<atsim::HidDaemon>(
            o_.root,
            atsim::PropertyStore{property_get, property_set,
                                 atcmd::property_dir(area, sizeof area) ? area : ""},
            t_);
        if (!daemon_->ok()) {
            error("hid daemon: cannot open its FIFOs in " + o_.root + "/dev");
            return false;
        }
        if (o_.heartbeat_ms > 0)
            daemon_->set_heartbeat_period(std::chrono::milliseconds(o_.heartbeat_ms));
        daemon_->on_status([this](const std::string &text) { status_.put(text, t_); });
        peer_follows();
        t_.add("note", "hid daemon status texts on " + path);
        return true;
    }

    // The accessory's WiFi side answers as its serial side does, except
    // that it reports its USB cable as it is now.
    void peer_follows() {
        if (!daemon_) return;
        atsim::Identity peer = id_;
        std::string &usb = peer.values["+USBSTATE"];
        const size_t comma = usb.find(',');
        usb = (acc_.plugged() ? "1" : "0") + (comma == std::string::npos ? ",-1" : usb.substr(comma));
        daemon_->answer_as(peer, silenced_);
    }

    bool plug() {
        bool ok = o_.uart ? acc_.plug_uart() : acc_.plug_usb(o_.usb, o_.product);
        if (!ok) error("cannot plug the accessory in under " + o_.root + "/dev");
        // Unplugging ends the schedule; a powered accessory reports again.
        if (ok && report_.first > 0)
            acc_.report_every(std::chrono::milliseconds(report_.first), report_.second);
        return ok;
    }

    bool ask(const std::string &what) {
        std::string q;
        if (what == "state")
            q = "AT+STATE?#10";
        else if (what == "version")
            q = "AT+VER?#11";
        else if (what == "btmac")
            q = "AT+BTMAC?#7";
        else
            return false;
        acc_.send(q + "&" + std::to_string(o_.platform) + "\r\n");
        return true;
    }

    const Options &o_;
    atsim::Transcript t_;
    atsim::Identity id_;                // what both sides answer
    std::set<std::string> silenced_;    // and leave unanswered
    atsim::Accessory acc_;
    std::pair<long, std::string> report_;     // period in ms (0: none) and line
    StatusFifo status_;                       // outlives the daemon that writes to it
    std::unique_ptr<atsim::HidDaemon> daemon_;
};

// Standard input, a line at a time, until "quit", the end of input (unless
// --stay) or a signal; all in this thread, so signals are taken from a
// signalfd rather than a handler.
void run(Sim &sim, const Options &o, int sig_fd) {
    std::string pending;
    bool eof = false;
    for (;;) {
        pollfd fds[2] = {{sig_fd, POLLIN, 0}, {eof ? -1 : STDIN_FILENO, POLLIN, 0}};
        if (poll(fds, 2, -1) < 0) {
            if (errno == EINTR) continue;
            error(std::string("poll: ") + std::strerror(errno));
            return;
        }
        if (fds[0].revents & POLLIN) {
            signalfd_siginfo si{};
            if (read(sig_fd, &si, sizeof si) > 0 && !o.quiet)
                print(stdout, std::string("# ") + strsignal(static_cast<int>(si.ssi_signo)) +
                                  ", quitting\n");
            return;
        }
        if (fds[1].revents == 0) continue;
        char buf[4096];
        ssize_t n = read(STDIN_FILENO, buf, sizeof buf);
        if (n < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (n > 0) {
            pending.append(buf, static_cast<size_t>(n));
            for (size_t nl; (nl = pending.find('\n')) != std::string::npos;) {
                std::string line = pending.substr(0, nl);
                pending.erase(0, nl + 1);
                if (!sim.command(line)) return;
            }
            continue;
        }
        eof = true;
        if (!pending.empty() && !sim.command(pending)) return;
        pending.clear();
        if (!o.stay) return;
    }
}

}  // namespace

int main(int argc, char **argv) {
    Options o;
    std::string why;
    if (!atsim_app::parse_options(argc, argv, &o, &why)) {
        std::fprintf(stderr, "atcmd-sim: %s (see --help)\n", why.c_str());
        return 2;
    }
    if (o.help) {
        std::printf("%s\n%s", atsim_app::kUsage, atsim_app::kCommands);
        return 0;
    }
    std::error_code ec;
    fs::create_directories(o.root + "/dev", ec);
    if (!ec) fs::create_directories(o.root + "/sys/class/tty", ec);
    if (ec) {
        std::fprintf(stderr, "atcmd-sim: cannot prepare %s: %s\n", o.root.c_str(),
                     ec.message().c_str());
        return 1;
    }
    // The property store finds its files under the same root as the module,
    // so both processes must agree on it; set before any thread exists.
    setenv("ATCMD_SYSROOT", o.root.c_str(), 1);

    // Blocked before the simulator starts its threads, so that only the
    // signalfd ever sees them; a closed terminal counts as a request to quit.
    sigset_t quit_signals;
    sigemptyset(&quit_signals);
    sigaddset(&quit_signals, SIGINT);
    sigaddset(&quit_signals, SIGTERM);
    sigaddset(&quit_signals, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &quit_signals, nullptr);
    int sig_fd = signalfd(-1, &quit_signals, SFD_CLOEXEC);
    if (sig_fd < 0) {
        std::fprintf(stderr, "atcmd-sim: signalfd: %s\n", std::strerror(errno));
        return 1;
    }
    // Output to a pipe whose reader went away must not kill us mid-cleanup.
    signal(SIGPIPE, SIG_IGN);

    int status;
    {
        Sim sim(o);
        status = sim.start();
        if (status == 0) run(sim, o, sig_fd);
        sim.stop();
    }
    close(sig_fd);
    return status;
}
