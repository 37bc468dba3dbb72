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
#include <string>
#include <thread>
#include <vector>

#include "sim/lines.h"
#include "sim/posix_io.h"
#include "sim/transcript.h"

namespace atsim {

// The property store the module uses, handed in because the simulator links
// no module code. Android's signatures; values up to 91 characters.
struct PropertyStore {
    int (*get)(const char *key, char *value, const char *default_value);
    int (*set)(const char *key, const char *value);
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
    // Polling cannot see the module write the start command it already
    // holds, which is how it restarts the daemon after an "exit". So after
    // an "exit" a start command still in "vendor.hid_cmd" starts the daemon
    // again at the next poll (on by default). Off: it stays stopped until
    // the property changes.
    void set_restart_after_exit(bool on);

    // A daemon stuck on its socket: while paused it leaves /dev/fifo_tx
    // unread, so the module's writes fill the FIFO and then block. A read
    // already under way finishes first.
    void pause_reading(bool paused);

    // Bytes from the WiFi peer to the module, one write into /dev/fifo_rx.
    bool send_to_module(const std::string &bytes);
    // The module's lines to the WiFi peer since the last clear_received().
    std::vector<std::string> received() const;
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
    void start(const std::string &how);
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

    mutable std::mutex mu_;
    bool stop_ = false;
    bool running_ = false;
    bool stopped_by_exit_ = false;
    bool paused_ = false;
    bool reading_paused_ = false;
    bool ack_exit_ = true;
    bool restart_after_exit_ = true;
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
