#include "bench/soak/link_stress.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <iterator>
#include <random>
#include <thread>
#include <vector>

#include "harness/wait_until.h"

namespace scenario {
namespace {

using atcmd_harness::wait_until;
using std::chrono::milliseconds;

constexpr char kMark[] = "+DTR=F";

// Threads that run a step over and over until stopped, counting the steps.
class Loops {
public:
    void add(std::function<void()> step) {
        threads_.emplace_back([this, step] {
            while (!stop_) step(), ++steps_;
        });
    }
    size_t stop() {
        stop_ = true;
        for (std::thread &t : threads_)
            if (t.joinable()) t.join();
        return steps_;
    }
    ~Loops() { stop(); }

private:
    std::vector<std::thread> threads_;
    std::atomic<bool> stop_{false};
    std::atomic<size_t> steps_{0};
};

bool fd_open(Module &m, const char *name) { return m.load<int>(name) >= 0; }

// Each cycle ends with the link down and set up again. The gaps vary so that
// the tear-down meets the transmit thread at every point of a write.
std::string run_cycles(Module &m, atsim::Accessory &acc, const std::string &sysroot,
                       atsim::Transcript &t, StressedLink link, int cycles, int *done,
                       Texts *daemon_got) {
    std::mt19937 rng(7);
    auto pause = [&](unsigned base, unsigned spread) {
        std::this_thread::sleep_for(milliseconds(base + rng() % spread));
    };
    if (link == StressedLink::kWifi) {
        atsim::HidDaemon daemon(sysroot, m.properties(), t);
        static atcmdprocess_device_t *s_dev;
        s_dev = m.device();
        daemon.on_status([](const std::string &text) { s_dev->hiddemon_stchange(text.c_str()); });
        for (*done = 0; *done < cycles; ++*done) {
            if (s_dev->wifi_init("192.168.1.7") != 0 ||
                !wait_until([&] { return m.status().mode == ATCMD_MODE_WIFI &&
                                         fd_open(m, "g_fifo_tx_fd"); }))
                return "WiFi channel open after running";
            pause(50, 100);
            s_dev->wifi_stchange(0);
        }
        daemon.on_status([](const std::string &) {});
        *daemon_got = daemon.received();
        return "";
    }
    const std::string log = sysroot + "/sdcard/tavrinola/.log/atcmdprocess";
    for (*done = 0; *done < cycles; ++*done) {
        if (link == StressedLink::kUsb) {
            if (!acc.plug_usb(0)) return "plug";
            if (!wait_until([&] { return fd_open(m, "g_vuart_fd"); })) return "VUART open";
            pause(10, 40);
            acc.unplug();
            pause(0, 30);
        } else {  // the UART receive thread re-opens the port itself after a failed read
            const size_t opens = count_in_file(log, "Init uart ");
            pause(50, 100);
            acc.unplug();
            pause(50, 1);
            if (!acc.plug_uart()) return "UART plug";
            if (!wait_until([&] { return count_in_file(log, "Init uart ") > opens &&
                                         fd_open(m, "g_uart_fd"); }))
                return "UART open again";
        }
    }
    return "";
}

}  // namespace

size_t count_in_file(const std::string &path, const std::string &what) {
    std::ifstream in(path, std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

StressFigures stress_link(Module &m, const std::string &sysroot, atsim::Transcript &t,
                          StressedLink link, int cycles, const std::string &scratch_dir) {
    StressFigures f;
    atsim::Accessory acc(sysroot, t);
    const uint8_t flag = link == StressedLink::kUart ? ATCMD_PLATFORM_UART : ATCMD_PLATFORM_VUART;
    if (link == StressedLink::kUart) {  // the UART is the client's to open on platform 2
        m.set_platform(ATCMD_PLATFORM_UART);
        acc.set_value("+USBSTATE", "0,0");
        pthread_t rx;
        if (!acc.plug_uart() || m.sym<int(int *)>("UART_init")(m.sym<int>("g_uart_fd")) != 0 ||
            pthread_create(&rx, nullptr, m.sym<void *(void *)>("atcmder_uartRx_thread"),
                           nullptr) != 0)
            return f.failure = "UART set-up", f;
    }
    // Two threads of the hosting process open and close files as fast as
    // they can, writing nothing: every open takes the lowest free number,
    // the one a module thread may just have closed.
    std::vector<std::string> files;
    Loops host;
    for (int k = 0; k < 2; ++k) {
        files.push_back(scratch_dir + "/host-" + std::to_string(k));
        host.add([path = files.back()] {
            close(open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
        });
    }
    // A client that sends a numbered report every 200 µs.
    Loops client;
    std::atomic<size_t> sent{0};
    client.add([&] {
        std::string text = kMark + std::to_string(sent++) + "\r\n";
        AtCmder_t rec = {};
        rec.type = ATCMD_TYPE_RESPONSE;
        rec.source = ATCMD_EP_CLIENT;
        rec.dest = ATCMD_EP_MCU;
        rec.flag = flag;
        rec.cmd_id = ATCMD_ID_DTR;
        rec.data = text.data();
        m.device()->cmd_from_hidl(&rec);
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    });

    Texts got;
    f.failure = run_cycles(m, acc, sysroot, t, link, cycles, &f.cycles, &got);
    client.stop();
    std::this_thread::sleep_for(milliseconds(200));  // the last lines on their way
    f.sent = sent;
    if (link != StressedLink::kWifi) got = acc.received();
    f.delivered = static_cast<size_t>(std::count_if(
        got.begin(), got.end(), [](const std::string &l) { return l.rfind(kMark, 0) == 0; }));
    f.host_opens = host.stop();
    struct stat st;
    for (const std::string &p : files)
        if (stat(p.c_str(), &st) == 0) f.misdirected += static_cast<size_t>(st.st_size);
    return f;
}

}  // namespace scenario
