// The WiFi helper daemon as the module sees it: started and stopped through
// the property "vendor.hid_cmd", asked to quit with "exit" on /dev/fifo_cmd
// (acknowledged in "vendor.hid_sts"), relaying the WiFi peer's bytes through
// /dev/fifo_rx (to the module) and /dev/fifo_tx (from the module), and
// reporting its status texts to the module's client.
#ifndef ATSIM_HID_DAEMON_H
#define ATSIM_HID_DAEMON_H

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "sim/identity.h"
#include "sim/lines.h"
#include "sim/posix_io.h"
#include "sim/transcript.h"

namespace atsim {

// The property store the module uses, handed in because the simulator links
// no module code. Android's signatures; values up to 91 characters.
struct PropertyStore {
    int (*get)(const char *key, char *value, const char *default_value);
    int (*set)(const char *key, const char *value);
    // The host store's directory, where every write puts a new file in the
    // key's place. Init starts a service on every write of its trigger
    // property, even one that repeats the value, and the module restarts
    // the daemon by writing the start command it wrote before; the file's
    // identity shows such a write. Empty: only a change of value is seen.
    std::string area;
};

class HidDaemon {
public:
    // Creates the three FIFOs under sysroot + "/dev" (which must exist).
    HidDaemon(std::string sysroot, PropertyStore props, Transcript &t);
    // Stops the threads and closes its descriptors; the FIFO files stay, as
    // the sysroot and the module's open descriptors belong to others.
    ~HidDaemon();
    HidDaemon(const HidDaemon &) = delete;
    HidDaemon &operator=(const HidDaemon &) = delete;

    bool ok() const;  // FIFOs created and opened
    bool running() const;

    // The client's hook: receives every status text, on the daemon's own
    // notifier thread, so a slow handler never delays the "exit" handling.
    void on_status(std::function<void(const std::string &)> cb);
    void emit_status(const std::string &text);

    void set_heartbeat_period(std::chrono::milliseconds period);  // default 1000 ms
    void pause_heartbeats(bool paused);

    // The answer to "exit": "exit" by default, another text, or nothing.
    void set_ack_exit(bool on);
    void set_ack_text(std::string text);
    int exit_requests() const;
    // After an "exit" the daemon stays stopped until "vendor.hid_cmd" is
    // written with a start command again. A start command that was there
    // before the daemon was made is not a request to it.

    // The WiFi peer answers the module's commands as the accessory does
    // (Identity, with `silenced` names left unanswered); off by default.
    void answer_as(Identity id, std::set<std::string> silenced = {});

    // A daemon stuck on its socket: while paused it leaves /dev/fifo_tx
    // unread, so the module's writes fill the FIFO and then block. A read
    // already under way finishes first.
    void pause_reading(bool paused);

    // Bytes from the WiFi peer to the module, one write into /dev/fifo_rx.
    bool send_to_module(const std::string &bytes);
    // The module's lines to the WiFi peer since the last clear_received().
    std::vector<std::string> received() const;
    const ReceivedLines &received_lines() const { return received_; }
    void clear_received();
    bool wait_for_line(const std::function<bool(const std::string &)> &pred,
                       std::chrono::milliseconds timeout);
    bool wait_for_count(size_t n, std::chrono::milliseconds timeout);

private:
    using Clock = std::chrono::steady_clock;

    void io_loop();
    void notifier_loop();
    void read_frames();
    void read_commands();
    void on_exit_request();
    void poll_command_property();
    FileStamp command_stamp() const;
    void start(const std::string &how);
    void drain_stale_frames();
    void answer(const std::string &line);
    void beat_if_due();

    const std::string sysroot_;
    const PropertyStore props_;
    Transcript &t_;
    WakePipe wake_;
    int rx_fd_ = -1;   // the daemon writes, the module reads
    int tx_fd_ = -1;   // the module writes, the daemon reads
    int cmd_fd_ = -1;  // the module writes "exit"

    // I/O-thread state.
    LineSplitter splitter_;
    std::string cmd_bytes_;
    std::string last_cmd_;  // the last "vendor.hid_cmd" value seen
    FileStamp last_cmd_stamp_;  // and the write that put it there

    mutable std::mutex mu_;
    bool stop_ = false;
    bool running_ = false;
    bool paused_ = false;
    bool reading_paused_ = false;
    bool ack_exit_ = true;
    bool answering_ = false;
    Identity peer_;
    std::set<std::string> peer_silenced_;
    std::string ack_text_ = "exit";
    int exit_requests_ = 0;
    unsigned long heartbeats_ = 0;
    std::chrono::milliseconds period_{1000};
    Clock::time_point next_beat_;

    std::condition_variable status_cv_;
    std::deque<std::string> statuses_;
    std::function<void(const std::string &)> status_cb_;

    ReceivedLines received_;
    std::thread notifier_;
    std::thread io_;
};

}  // namespace atsim

#endif
