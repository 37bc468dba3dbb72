#include "sim/accessory.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <utility>

#include "sim/responder.h"

namespace fs = std::filesystem;

namespace atsim {

namespace {

// Written through the simulator's own slave descriptor by take_output(). No
// line of the protocol holds ESC, and the mark has no '\n' for the module's
// terminal settings to expand.
const std::string kMark = "\x1b<end-of-output>\x1b";
constexpr auto kMarkWait = std::chrono::seconds(5);

// How much of the end of `s` could be the start of a mark still on its way.
size_t mark_prefix_at_end(const std::string &s) {
    for (size_t k = std::min(s.size(), kMark.size() - 1); k > 0; --k)
        if (s.compare(s.size() - k, k, kMark, 0, k) == 0) return k;
    return 0;
}

}  // namespace

Accessory::Accessory(std::string sysroot, Transcript &t, Identity id)
    : sysroot_(std::move(sysroot)), t_(t), id_(std::move(id)) {}

Accessory::~Accessory() { unplug(); }

bool Accessory::plug_usb(int n, std::string product) {
    return plug("ttyACM" + std::to_string(n),
                "DEVTYPE=usb_interface\nDRIVER=cdc_acm\nPRODUCT=" + product +
                    "\nTYPE=239/2/1\nINTERFACE=2/2/1\n");
}

bool Accessory::plug_uart() { return plug("ttyS4", ""); }

bool Accessory::plug(const std::string &name, const std::string &uevent) {
    std::string what;
    bool ok;
    {
        std::lock_guard<std::mutex> link(link_mu_);
        if (plugged() || !wake_.ok()) return false;
        ok = open_link(name, uevent, &what);
    }
    t_.add("note", what);
    return ok;
}

bool Accessory::open_link(const std::string &name, const std::string &uevent,
                          std::string *what) {
    *what = "plug " + name + " failed";
    int m = -1, s = -1;
    char slave_path[256] = {};
    if (openpty(&m, &s, nullptr, nullptr, nullptr) != 0) return false;
    fcntl(m, F_SETFD, FD_CLOEXEC);
    fcntl(s, F_SETFD, FD_CLOEXEC);
    // Non-blocking, so a phone that stops reading cannot hang a sender forever.
    fcntl(m, F_SETFL, fcntl(m, F_GETFL) | O_NONBLOCK);
    // Raw: no echo, no line editing, no "\n" -> "\r\n" in either direction.
    termios tio{};
    if (tcgetattr(s, &tio) == 0) {
        cfmakeraw(&tio);
        tcsetattr(s, TCSANOW, &tio);
    }
    std::error_code ec;
    const std::string node = sysroot_ + "/dev/" + name;
    const std::string sys_dir = uevent.empty() ? "" : sysroot_ + "/sys/class/tty/" + name;
    bool ok = ttyname_r(s, slave_path, sizeof slave_path) == 0;
    // The module's watcher reacts to the /dev node and then reads the
    // uevent, so the uevent must be there first.
    if (ok && !sys_dir.empty()) {
        fs::create_directories(sys_dir + "/device", ec);
        ok = static_cast<bool>(std::ofstream(sys_dir + "/device/uevent") << uevent);
    }
    if (!ok) {
        close_fd(&m);
        close_fd(&s);
        if (!sys_dir.empty()) fs::remove_all(sys_dir, ec);
        return false;
    }
    {
        std::lock_guard<std::mutex> lk(mu_);
        master_fd_ = m;
        slave_fd_ = s;
        node_ = node;
        sys_dir_ = sys_dir;
        plugged_ = true;
        splitter_.reset();
        scan_.clear();
        output_.clear();
        taken_.clear();
        marks_sent_ = marks_seen_ = 0;
    }
    wake_.drain();
    reader_ = std::thread(&Accessory::reader_loop, this, m, wake_.fd());
    fs::create_directories(sysroot_ + "/dev", ec);
    fs::remove(node, ec);  // a node left by a run that crashed
    if (symlink(slave_path, node.c_str()) != 0) {
        close_link();
        return false;
    }
    *what = "plug " + node + " -> " + slave_path;
    return true;
}

void Accessory::unplug() {
    stop_reports();
    std::string node;
    {
        std::lock_guard<std::mutex> link(link_mu_);
        if (!plugged()) return;
        node = node_path();
        close_link();
    }
    t_.add("note", "unplug " + node);
}

// The node goes first, as when the kernel drops a USB device; then the pty
// closes under the module's descriptor, whose reads now fail.
void Accessory::close_link() {
    std::error_code ec;
    fs::remove(node_path(), ec);
    if (!sys_dir_.empty()) fs::remove_all(sys_dir_, ec);
    wake_.wake();
    reader_.join();
    wake_.drain();
    std::lock_guard<std::mutex> lk(mu_);
    close_fd(&master_fd_);
    close_fd(&slave_fd_);
    plugged_ = false;
    node_.clear();
    sys_dir_.clear();
    // Whatever the phone wrote stays for a last take_output().
    taken_ += output_ + scan_;
    output_.clear();
    scan_.clear();
    splitter_.reset();
}

bool Accessory::plugged() const {
    std::lock_guard<std::mutex> lk(mu_);
    return plugged_;
}

std::string Accessory::node_path() const {
    std::lock_guard<std::mutex> lk(mu_);
    return node_;
}

int Accessory::slave_fd() const {
    std::lock_guard<std::mutex> lk(mu_);
    return slave_fd_;
}

void Accessory::set_auto_answer(bool on) {
    std::lock_guard<std::mutex> lk(mu_);
    auto_answer_ = on;
}

void Accessory::silence(const std::string &name, bool on) {
    std::lock_guard<std::mutex> lk(mu_);
    if (on)
        silenced_.insert(name);
    else
        silenced_.erase(name);
}

void Accessory::set_value(const std::string &name, const std::string &value) {
    std::lock_guard<std::mutex> lk(mu_);
    id_.values[name] = value;
}

bool Accessory::write_master(const std::string &bytes) {
    std::lock_guard<std::mutex> w(write_mu_);
    return write_all(master_fd_, bytes.data(), bytes.size());
}

// Recorded before the write, so that the transcript never shows the phone's
// reaction ahead of its cause.
bool Accessory::send(const std::string &bytes) {
    t_.add("mcu>phone", bytes);
    bool ok;
    {
        std::lock_guard<std::mutex> link(link_mu_);
        ok = master_fd_ >= 0 && write_master(bytes);
    }
    if (!ok) t_.add("note", "that send failed: " + bytes);
    return ok;
}

bool Accessory::send_split(const std::string &bytes, size_t chunk,
                           std::chrono::milliseconds gap) {
    if (chunk == 0) chunk = 1;
    std::vector<std::string> sent;
    bool ok = true;
    {
        // Held throughout, so no answer lands in the middle of the line.
        std::lock_guard<std::mutex> link(link_mu_);
        std::lock_guard<std::mutex> w(write_mu_);
        for (size_t at = 0; ok && at < bytes.size(); at += chunk) {
            if (at > 0) std::this_thread::sleep_for(gap);
            std::string part = bytes.substr(at, chunk);
            ok = master_fd_ >= 0 && write_all(master_fd_, part.data(), part.size());
            if (ok) sent.push_back(part);
        }
    }
    for (const std::string &part : sent) t_.add("mcu>phone", part);
    if (!ok) t_.add("note", "split send failed: " + bytes);
    return ok;
}

bool Accessory::send_garbage(size_t n) {
    std::string junk;
    for (size_t i = 0; i < n; ++i) junk += "x#"[i % 2];
    return send(junk + "\r\n");
}

bool Accessory::send_overlong(size_t n) {
    std::string body;
    for (size_t i = 0; i < n; ++i) body += static_cast<char>('0' + i % 10);
    return send("+DTR=" + body + "\r\n");
}

void Accessory::report_every(std::chrono::milliseconds period, std::string line) {
    stop_reports();
    std::lock_guard<std::mutex> lk(report_mu_);
    reports_stop_ = false;
    report_thread_ = std::thread([this, period, line] {
        name_thread("atsim-reports");
        std::unique_lock<std::mutex> lk(report_mu_);
        while (!report_cv_.wait_for(lk, period, [this] { return reports_stop_; })) {
            lk.unlock();
            send(line);
            lk.lock();
        }
    });
}

void Accessory::stop_reports() {
    std::thread schedule;
    {
        std::lock_guard<std::mutex> lk(report_mu_);
        reports_stop_ = true;
        schedule = std::move(report_thread_);
    }
    report_cv_.notify_all();
    if (schedule.joinable()) schedule.join();
}

std::vector<std::string> Accessory::received() const { return received_.lines(); }

void Accessory::clear_received() { received_.clear(); }

bool Accessory::wait_for_line(const std::function<bool(const std::string &)> &pred,
                              std::chrono::milliseconds timeout) {
    return received_.wait_for_line(pred, timeout);
}

bool Accessory::wait_for_count(size_t n, std::chrono::milliseconds timeout) {
    return received_.wait_for_count(n, timeout);
}

std::string Accessory::take_output() {
    std::lock_guard<std::mutex> link(link_mu_);
    std::unique_lock<std::mutex> lk(mu_);
    if (!plugged_) return std::exchange(taken_, {});
    const uint64_t ticket = ++marks_sent_;
    const int fd = slave_fd_;
    lk.unlock();
    bool wrote = write_all(fd, kMark.data(), kMark.size());
    lk.lock();
    bool seen = wrote && cv_.wait_for(lk, kMarkWait, [&] { return marks_seen_ >= ticket; });
    std::string out = std::exchange(taken_, {});
    if (!seen) out += std::exchange(output_, {});  // the best we have
    lk.unlock();
    if (!seen) t_.add("note", "take_output: the end mark did not come back");
    return out;
}

bool Accessory::set_read_observer(ReadObserver observer) {
    std::lock_guard<std::mutex> link(link_mu_);
    if (plugged()) return false;
    read_observer_ = std::move(observer);
    return true;
}

void Accessory::reader_loop(int master, int wake) {
    name_thread("atsim-mcu-rx");
    pollfd fds[2] = {{master, POLLIN, 0}, {wake, POLLIN, 0}};
    char buf[4096];
    for (;;) {
        if (poll(fds, 2, -1) < 0) {
            if (errno == EINTR) continue;
            return;
        }
        if (fds[1].revents != 0) return;
        if (fds[0].revents == 0) continue;
        ssize_t n = read(master, buf, sizeof buf);
        if (n > 0) {
            if (read_observer_) read_observer_(buf, static_cast<size_t>(n));
            consume(buf, static_cast<size_t>(n));
        } else if (n == 0 || (errno != EAGAIN && errno != EINTR)) {
            // Cannot happen while the simulator holds its slave open; do not spin.
            return;
        }
    }
}

// Bytes from the phone, in order: marks are cut out and end a take_output();
// everything else goes to the output record and the line splitter. A mark
// counts as seen only once the lines before it are handled, so received()
// agrees with what take_output() returns.
void Accessory::consume(const char *data, size_t n) {
    std::vector<std::string> lines;
    uint64_t marks = 0;
    {
        std::lock_guard<std::mutex> lk(mu_);
        auto pass = [&](size_t len) {
            output_.append(scan_, 0, len);
            for (std::string &l : splitter_.feed(scan_.data(), len)) lines.push_back(std::move(l));
            scan_.erase(0, len);
        };
        scan_.append(data, n);
        for (size_t at; (at = scan_.find(kMark)) != std::string::npos;) {
            pass(at);
            scan_.erase(0, kMark.size());
            taken_ += std::exchange(output_, {});
            ++marks;
        }
        // A mark has no '\n', so holding back its start never delays a line.
        size_t hold = marks_seen_ + marks < marks_sent_ ? mark_prefix_at_end(scan_) : 0;
        pass(scan_.size() - hold);
    }
    for (const std::string &line : lines) handle_line(line);
    if (marks == 0) return;
    {
        std::lock_guard<std::mutex> lk(mu_);
        marks_seen_ += marks;
    }
    cv_.notify_all();
}

void Accessory::handle_line(const std::string &line) {
    t_.add("phone>mcu", line);
    received_.add(line);
    std::string reply;
    {
        std::lock_guard<std::mutex> lk(mu_);
        if (auto_answer_) reply = answer_for(id_, silenced_, line);
    }
    if (!reply.empty() && write_master(reply)) t_.add("mcu>phone", reply);
}

}  // namespace atsim
