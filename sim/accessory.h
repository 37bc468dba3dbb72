// The accessory's MCU at the far end of a serial link: a pseudo-terminal
// whose slave side is presented to the module as /dev/ttyACM<n> (USB CDC-ACM)
// or /dev/ttyS4 (UART) under the sysroot. It answers the phone's commands
// from its Identity, can send reports and noise, and records everything.
#ifndef ATSIM_ACCESSORY_H
#define ATSIM_ACCESSORY_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
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

class Accessory {
public:
    Accessory(std::string sysroot, Transcript &t, Identity id = Identity::defaults());
    ~Accessory();  // unplugs
    Accessory(const Accessory &) = delete;
    Accessory &operator=(const Accessory &) = delete;

    // A new pty each time; false if already plugged or on any failure.
    bool plug_usb(int n = 0, std::string product = "6f2a/4c07/100");
    bool plug_uart();
    // A cable pull: the node goes, then the pty, so the module's reads fail.
    void unplug();
    bool plugged() const;
    std::string node_path() const;  // "<sysroot>/dev/ttyACM0", empty when unplugged
    int slave_fd() const;           // the simulator's own slave descriptor, -1 when unplugged

    // Answering the phone's commands (on by default).
    void set_auto_answer(bool on);
    // No answer at all to commands of this name ("+VER"), queries or sets.
    void silence(const std::string &name, bool on = true);
    void set_value(const std::string &name, const std::string &value);

    // Each is recorded as "mcu>phone"; false if unplugged or the write failed.
    bool send(const std::string &bytes);
    bool send_split(const std::string &bytes, size_t chunk,
                    std::chrono::milliseconds gap = std::chrono::milliseconds(20));
    bool send_garbage(size_t n);   // n printable non-protocol bytes, then "\r\n"
    bool send_overlong(size_t n);  // "+DTR=" + n characters + "\r\n"

    // One schedule at a time; ends with stop_reports(), unplug() or destruction.
    void report_every(std::chrono::milliseconds period, std::string line);
    void stop_reports();

    // The phone's lines since the last clear_received(), "\r\n" included.
    std::vector<std::string> received() const;
    const ReceivedLines &received_lines() const { return received_; }
    void clear_received();
    bool wait_for_line(const std::function<bool(const std::string &)> &pred,
                       std::chrono::milliseconds timeout);
    bool wait_for_count(size_t n, std::chrono::milliseconds timeout);

    // Exactly the bytes the phone wrote since the previous call, without
    // guessing how long to wait: a mark written through the simulator's own
    // slave descriptor comes out of the master after all of them.
    std::string take_output();

    // Called on the reader thread with the bytes of each read (take_output()'s
    // marks included) before any other handling, to time when the phone's
    // bytes became readable. Set only while unplugged (false otherwise): the
    // next reader thread starts with it, so it needs no lock.
    using ReadObserver = std::function<void(const char *data, size_t n)>;
    bool set_read_observer(ReadObserver observer);

private:
    bool plug(const std::string &name, const std::string &uevent);
    bool open_link(const std::string &name, const std::string &uevent, std::string *what);
    void close_link();  // link_mu_ held
    void reader_loop(int master, int wake);
    void consume(const char *data, size_t n);
    void handle_line(const std::string &line);
    bool write_master(const std::string &bytes);

    const std::string sysroot_;
    Transcript &t_;
    WakePipe wake_;

    // Order: link_mu_, then write_mu_, then mu_. link_mu_ keeps the
    // descriptors alive for the test thread's calls; the reader thread never
    // takes it (unplug joins the reader while holding it).
    std::mutex link_mu_;
    std::mutex write_mu_;  // one sender at a time, so lines never interleave
    mutable std::mutex mu_;
    std::condition_variable cv_;

    int master_fd_ = -1;
    int slave_fd_ = -1;
    std::string node_;     // the /dev symlink
    std::string sys_dir_;  // sys/class/tty/<name>, USB only
    bool plugged_ = false;
    std::thread reader_;

    Identity id_;
    std::set<std::string> silenced_;
    bool auto_answer_ = true;

    // Reader-thread state, under mu_ for take_output().
    LineSplitter splitter_;
    std::string scan_;    // read but not yet passed on: may hold part of a mark
    std::string output_;  // passed on since the last mark
    std::string taken_;   // bytes before marks seen, waiting for take_output()
    uint64_t marks_sent_ = 0;
    uint64_t marks_seen_ = 0;

    ReceivedLines received_;
    ReadObserver read_observer_;  // written only while no reader thread runs

    std::mutex report_mu_;
    std::condition_variable report_cv_;
    bool reports_stop_ = false;
    std::thread report_thread_;
};

}  // namespace atsim

#endif
