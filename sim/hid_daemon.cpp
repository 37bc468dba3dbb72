#include "sim/hid_daemon.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "sim/responder.h"

namespace atsim {

namespace {

constexpr char kCmdProp[] = "vendor.hid_cmd";
constexpr char kStsProp[] = "vendor.hid_sts";
constexpr char kExit[] = "exit";
constexpr size_t kExitLen = sizeof kExit - 1;
constexpr auto kPropertyPoll = std::chrono::milliseconds(20);
constexpr size_t kPropertyValueMax = 92;

bool is_start(const std::string &cmd) { return cmd == "start_server" || cmd == "start_client"; }
bool is_stop(const std::string &cmd) { return cmd == "stop_server" || cmd == "stop_client"; }

std::string get_property(const PropertyStore &props, const char *key) {
    char value[kPropertyValueMax] = {};
    if (props.get == nullptr) return "";
    props.get(key, value, "");
    value[kPropertyValueMax - 1] = '\0';
    return value;
}

// O_RDWR: opening never waits for the module to open the other end, and the
// FIFO never reports a hang-up while the module has it closed.
int open_fifo(const std::string &path) {
    if (mkfifo(path.c_str(), 0600) != 0 && errno != EEXIST) return -1;
    return open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
}

}  // namespace

HidDaemon::HidDaemon(std::string sysroot, PropertyStore props, Transcript &t)
    : sysroot_(std::move(sysroot)), props_(std::move(props)), t_(t) {
    // What the command property holds now was written for an earlier daemon.
    last_cmd_ = get_property(props_, kCmdProp);
    last_cmd_stamp_ = command_stamp();
    rx_fd_ = open_fifo(sysroot_ + "/dev/fifo_rx");
    tx_fd_ = open_fifo(sysroot_ + "/dev/fifo_tx");
    cmd_fd_ = open_fifo(sysroot_ + "/dev/fifo_cmd");
    if (!ok()) t_.add("note", "hid daemon: cannot open its FIFOs in " + sysroot_ + "/dev");
    notifier_ = std::thread(&HidDaemon::notifier_loop, this);
    io_ = std::thread(&HidDaemon::io_loop, this);
}

HidDaemon::~HidDaemon() {
    {
        std::lock_guard<std::mutex> lk(mu_);
        stop_ = true;
    }
    // The notifier first: a status handler may be waiting for the I/O
    // thread to acknowledge an "exit", so that thread must outlive it.
    status_cv_.notify_all();
    notifier_.join();
    wake_.wake();
    io_.join();
    close_fd(&rx_fd_);
    close_fd(&tx_fd_);
    close_fd(&cmd_fd_);
}

bool HidDaemon::ok() const { return rx_fd_ >= 0 && tx_fd_ >= 0 && cmd_fd_ >= 0; }

bool HidDaemon::running() const {
    std::lock_guard<std::mutex> lk(mu_);
    return running_;
}

void HidDaemon::on_status(std::function<void(const std::string &)> cb) {
    std::lock_guard<std::mutex> lk(mu_);
    status_cb_ = std::move(cb);
}

void HidDaemon::emit_status(const std::string &text) {
    t_.add("daemon-status", text);
    {
        std::lock_guard<std::mutex> lk(mu_);
        statuses_.push_back(text);
    }
    status_cv_.notify_all();
}

void HidDaemon::set_heartbeat_period(std::chrono::milliseconds period) {
    std::lock_guard<std::mutex> lk(mu_);
    period_ = period;
    next_beat_ = Clock::now() + period_;
}

void HidDaemon::pause_heartbeats(bool paused) {
    {
        std::lock_guard<std::mutex> lk(mu_);
        if (paused_ && !paused) next_beat_ = Clock::now() + period_;
        paused_ = paused;
    }
    t_.add("note", paused ? "heartbeats paused" : "heartbeats resumed");
}

void HidDaemon::set_ack_exit(bool on) {
    std::lock_guard<std::mutex> lk(mu_);
    ack_exit_ = on;
}

void HidDaemon::set_ack_text(std::string text) {
    std::lock_guard<std::mutex> lk(mu_);
    ack_text_ = std::move(text);
}

int HidDaemon::exit_requests() const {
    std::lock_guard<std::mutex> lk(mu_);
    return exit_requests_;
}

void HidDaemon::answer_as(Identity id, std::set<std::string> silenced) {
    std::lock_guard<std::mutex> lk(mu_);
    answering_ = true;
    peer_ = std::move(id);
    peer_silenced_ = std::move(silenced);
}

void HidDaemon::pause_reading(bool paused) {
    {
        std::lock_guard<std::mutex> lk(mu_);
        reading_paused_ = paused;
    }
    wake_.wake();  // the I/O thread's next poll takes the new setting
    t_.add("note", paused ? "fifo_tx reading paused" : "fifo_tx reading resumed");
}

// Recorded before the write, as the accessory's sends are.
bool HidDaemon::send_to_module(const std::string &bytes) {
    t_.add("daemon>phone", bytes);
    bool ok = rx_fd_ >= 0 &&
              write(rx_fd_, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
    if (!ok) t_.add("note", "that send to the module failed: " + bytes);
    return ok;
}

std::vector<std::string> HidDaemon::received() const { return received_.lines(); }

void HidDaemon::clear_received() { received_.clear(); }

bool HidDaemon::wait_for_line(const std::function<bool(const std::string &)> &pred,
                              std::chrono::milliseconds timeout) {
    return received_.wait_for_line(pred, timeout);
}

bool HidDaemon::wait_for_count(size_t n, std::chrono::milliseconds timeout) {
    return received_.wait_for_count(n, timeout);
}

void HidDaemon::notifier_loop() {
    name_thread("atsim-hid-sts");
    std::unique_lock<std::mutex> lk(mu_);
    for (;;) {
        status_cv_.wait(lk, [this] { return stop_ || !statuses_.empty(); });
        if (stop_) return;
        std::string text = std::move(statuses_.front());
        statuses_.pop_front();
        auto cb = status_cb_;
        lk.unlock();
        if (cb) cb(text);
        lk.lock();
    }
}

// One thread for the FIFOs, the property poll and the heartbeat clock; it
// never runs the client's status handler, so "exit" is always answered.
void HidDaemon::io_loop() {
    name_thread("atsim-hid-io");
    pollfd fds[3] = {{wake_.fd(), POLLIN, 0}, {tx_fd_, POLLIN, 0}, {cmd_fd_, POLLIN, 0}};
    auto next_poll = Clock::now();
    for (;;) {
        if (Clock::now() >= next_poll) {
            poll_command_property();
            next_poll = Clock::now() + kPropertyPoll;
        }
        beat_if_due();
        auto wake_at = next_poll;
        {
            std::lock_guard<std::mutex> lk(mu_);
            if (stop_) return;
            if (running_ && !paused_) wake_at = std::min(wake_at, next_beat_);
            fds[1].events = reading_paused_ ? 0 : POLLIN;
        }
        auto wait = std::chrono::ceil<std::chrono::milliseconds>(wake_at - Clock::now());
        int r = poll(fds, 3, static_cast<int>(std::max<long long>(0, wait.count())));
        if (r < 0 && errno != EINTR) return;
        if (r <= 0) continue;
        if (fds[0].revents != 0) wake_.drain();  // stop_ and the pause are checked above
        if (fds[1].revents & POLLIN) read_frames();
        if (fds[2].revents & POLLIN) read_commands();
    }
}

void HidDaemon::read_frames() {
    char buf[4096];
    ssize_t n;
    while ((n = read(tx_fd_, buf, sizeof buf)) > 0) {
        for (const std::string &line : splitter_.feed(buf, static_cast<size_t>(n))) {
            t_.add("phone>daemon", line);
            received_.add(line);
            answer(line);
        }
    }
}

void HidDaemon::read_commands() {
    char buf[256];
    ssize_t n;
    while ((n = read(cmd_fd_, buf, sizeof buf)) > 0) cmd_bytes_.append(buf, static_cast<size_t>(n));
    for (size_t at; (at = cmd_bytes_.find(kExit)) != std::string::npos;) {
        cmd_bytes_.erase(0, at + kExitLen);
        on_exit_request();
    }
    // Only the start of an "exit" still on its way is worth keeping.
    if (cmd_bytes_.size() >= kExitLen) cmd_bytes_.erase(0, cmd_bytes_.size() - (kExitLen - 1));
}

void HidDaemon::answer(const std::string &line) {
    std::string reply;
    {
        std::lock_guard<std::mutex> lk(mu_);
        if (answering_) reply = answer_for(peer_, peer_silenced_, line);
    }
    if (!reply.empty()) send_to_module(reply);
}

void HidDaemon::on_exit_request() {
    bool ack;
    std::string text;
    {
        std::lock_guard<std::mutex> lk(mu_);
        ++exit_requests_;
        running_ = false;
        ack = ack_exit_;
        text = ack_text_;
    }
    t_.add("note", "fifo_cmd: exit");
    if (!ack) {
        t_.add("note", "exit not acknowledged");
        return;
    }
    if (props_.set != nullptr) props_.set(kStsProp, text.c_str());
    t_.add("note", std::string(kStsProp) + "=" + text);
}

FileStamp HidDaemon::command_stamp() const {
    return props_.area.empty() ? FileStamp{} : file_stamp(props_.area + "/" + kCmdProp);
}

// Every write counts, as for init's property triggers: a start command
// written again restarts a daemon that exited.
void HidDaemon::poll_command_property() {
    std::string cmd = get_property(props_, kCmdProp);
    FileStamp stamp = command_stamp();
    if (cmd == last_cmd_ && stamp == last_cmd_stamp_) return;
    last_cmd_ = cmd;
    last_cmd_stamp_ = stamp;
    t_.add("note", std::string(kCmdProp) + "=" + cmd);
    if (is_start(cmd)) {
        start(cmd);
    } else if (is_stop(cmd)) {
        {
            std::lock_guard<std::mutex> lk(mu_);
            running_ = false;
        }
        t_.add("note", "hid daemon stopped");
    }
}

void HidDaemon::start(const std::string &how) {
    std::string what = "hid daemon started: " + how;
    if (how == "start_client") what += ", server " + get_property(props_, kStsProp);
    {
        std::lock_guard<std::mutex> lk(mu_);
        running_ = true;
        next_beat_ = Clock::now() + period_;
    }
    drain_stale_frames();
    t_.add("note", what);
    emit_status("running");
}

// Bytes for a module that is gone (a session killed before it read them)
// are not the new session's: a daemon that starts has nothing queued yet.
void HidDaemon::drain_stale_frames() {
    char buf[4096];
    size_t dropped = 0;
    for (ssize_t n; (n = read(rx_fd_, buf, sizeof buf)) > 0;) dropped += static_cast<size_t>(n);
    if (dropped > 0)
        t_.add("note", "fifo_rx: dropped " + std::to_string(dropped) + " bytes nobody read");
}

void HidDaemon::beat_if_due() {
    std::string text;
    {
        std::lock_guard<std::mutex> lk(mu_);
        if (!running_ || paused_ || Clock::now() < next_beat_) return;
        text = "heartbeat:" + std::to_string(++heartbeats_);
        next_beat_ = Clock::now() + period_;
    }
    emit_status(text);
}

}  // namespace atsim
