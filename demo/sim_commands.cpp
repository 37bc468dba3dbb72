#include "demo/sim_commands.h"

#include <dirent.h>
#include <pthread.h>

#include <chrono>
#include <thread>

#include "platform/property_store.h"

namespace atcmd_demo {
namespace {

using namespace std::chrono_literals;

constexpr auto kCheckWait = 5s;

// The module in the demo's process hears the daemon the way a client does:
// the client forwards each status text to the device.
atcmdprocess_device_t *g_device;

std::string rest_of(const std::vector<std::string> &words, size_t from) {
    std::string s;
    for (size_t i = from; i < words.size(); ++i) s += (i > from ? " " : "") + words[i];
    return s;
}

std::vector<std::string> escaped(std::vector<std::string> lines) {
    for (std::string &l : lines) l = atsim::escape(l);
    return lines;
}

}  // namespace

SimCommands::SimCommands(std::string root, atcmd_console::Console &console)
    : root_(std::move(root)), area_(root_ + atcmd::kRootPropertyArea), console_(console),
      usb_(root_, transcript_), uart_(root_, transcript_) {
    // One clock for every line: the console's, read as the line is printed.
    transcript_.set_listener([this](const atsim::Event &e) {
        console_.stamp(e.who + " " + atsim::escape(e.text));
    });
    console_.on_mark([this] { take_window(); });
}

SimCommands::~SimCommands() { transcript_.set_listener(nullptr); }

bool SimCommands::is_check(const std::vector<std::string> &words) {
    return words.size() > 1 && words[0] == "sim" && words[1].rfind("expect", 0) == 0;
}

void SimCommands::take_window() {
    window_.usb = usb_.received_lines().size();
    window_.uart = uart_.received_lines().size();
    window_.daemon = daemon_ ? daemon_->received_lines().size() : 0;
    window_.props.clear();
    if (DIR *d = opendir(area_.c_str())) {
        while (const dirent *e = readdir(d))
            if (e->d_name[0] != '.')
                window_.props[e->d_name] = atsim::file_stamp(area_ + "/" + e->d_name);
        closedir(d);
    }
}

bool SimCommands::run(const std::vector<std::string> &words, std::string *error) {
    if (words.empty() || words[0] != "sim") return false;
    const std::string cmd = words.size() > 1 ? words[1] : "";
    const std::string arg = rest_of(words, 2);
    bool ok = true;
    if (cmd == "plug") {
        ok = usb_.plug_usb(0);
    } else if (cmd == "unplug") {
        usb_.unplug();
        wait_for_receive_thread_gone();
    } else if (cmd == "send") {
        ok = usb_.send(arg + "\r\n");
    } else if (cmd == "silence" || cmd == "answer") {
        usb_.silence(arg, cmd == "silence");
    } else if (cmd == "ask" || cmd == "ask-uart") {
        // The accessory's own questions, as its MCU asks them on each link.
        const bool on_uart = cmd == "ask-uart";
        const std::string tail = on_uart ? "&2\r\n" : "&1\r\n";
        const std::string line = arg == "state"     ? "AT+STATE?#10" + tail
                                 : arg == "version" ? "AT+VER?#11" + tail
                                                    : "AT+BTMAC?#7" + tail;
        ok = (on_uart ? uart_ : usb_).send(line);
    } else if (cmd == "daemon") {
        ok = start_daemon();
    } else if (cmd == "peer" && daemon_) {
        ok = daemon_->send_to_module(arg + "\r\n");
    } else if (cmd == "uart") {
        ok = open_uart(error);
    } else if (cmd == "expect" && words.size() > 3) {
        // sim expect mcu|uart|daemon TEXT: a line the accessory side received.
        return expect_line(words[2], {rest_of(words, 3)}, error);
    } else if (cmd == "expect-count" && words.size() > 4) {
        // sim expect-count mcu|uart|daemon N TEXT: exactly N such lines.
        return expect_line(words[2], {rest_of(words, 4), std::stoul(words[3]), true}, error);
    } else if (cmd == "expect-prop" && words.size() == 4) {
        // sim expect-prop KEY VALUE: what the phone set, as the platform sees it.
        return expect_prop(words[2], words[3], error);
    } else {
        *error = "unknown sim command: " + rest_of(words, 1);
        return true;
    }
    if (!ok && error->empty()) *error = "sim " + cmd + " failed";
    return true;
}

// Waits until the lines `who` received since the window opened meet `want`.
bool SimCommands::expect_line(const std::string &who, const atcmd_console::Expectation &want,
                              std::string *error) {
    const atsim::ReceivedLines *lines = who == "mcu"                ? &usb_.received_lines()
                                        : who == "uart"             ? &uart_.received_lines()
                                        : who == "daemon" && daemon_ ? &daemon_->received_lines()
                                                                     : nullptr;
    if (lines == nullptr) {
        *error = "sim expect: no " + who + " (mcu, uart, or daemon once started)";
        return true;
    }
    const size_t from = who == "mcu" ? window_.usb : who == "uart" ? window_.uart : window_.daemon;
    const auto begun = std::chrono::steady_clock::now();
    lines->wait_since(
        from, [&](const std::vector<std::string> &seen) { return atcmd_console::enough(want, seen); },
        kCheckWait);
    const auto waited = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - begun);
    const std::string why = atcmd_console::verdict(want, escaped(lines->since(from)),
                                                   console_.window(), waited.count());
    if (!why.empty()) *error = who + " received " + why;
    return true;
}

// A property counts only when it was written after the window opened: the
// key's file is replaced on every write.
bool SimCommands::expect_prop(const std::string &key, const std::string &value,
                              std::string *error) {
    auto *get = console_.module().sym<int(const char *, char *, const char *)>("property_get");
    const std::string path = area_ + "/" + key;
    const atsim::FileStamp before =
        window_.props.count(key) != 0 ? window_.props.at(key) : atsim::FileStamp{};
    char now[92] = "";
    auto written = [&] {
        get(key.c_str(), now, "");
        return atsim::file_stamp(path) != before && value == now;
    };
    const auto deadline = std::chrono::steady_clock::now() + kCheckWait;
    while (!written() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(10ms);
    if (written()) return true;
    *error = key + " is \"" + now + "\", not " + value +
             (atsim::file_stamp(path) == before ? ", and nothing wrote it" : "") + " after `" +
             console_.window() + "`";
    return true;
}

// A person replugging takes longer than the module needs to notice the last
// unplug (its receive thread rechecks after 300 ms, then tells the client
// again); a script does not, so an unplug waits for that thread to be gone.
void SimCommands::wait_for_receive_thread_gone() {
    const pthread_t *rx = console_.module().sym<pthread_t>("g_VuartRx_thread");
    const auto deadline = std::chrono::steady_clock::now() + 3s;
    while (rx != nullptr && __atomic_load_n(rx, __ATOMIC_RELAXED) != 0 &&
           std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(10ms);
}

// The daemon, its WiFi peer answering as the accessory does.
bool SimCommands::start_daemon() {
    atcmd_client::Module &m = console_.module();
    daemon_ = std::make_unique<atsim::HidDaemon>(
        root_,
        atsim::PropertyStore{m.sym<int(const char *, char *, const char *)>("property_get"),
                             m.sym<int(const char *, const char *)>("property_set"), area_},
        transcript_);
    // The cable is out while WiFi comes up, and the accessory says so.
    atsim::Identity peer = atsim::Identity::defaults();
    peer.values["+USBSTATE"] = "0,3";
    daemon_->answer_as(peer);
    g_device = console_.device();
    daemon_->on_status([](const std::string &text) { g_device->hiddemon_stchange(text.c_str()); });
    return daemon_->ok();
}

// Platform 2: the accessory on the UART. A client that switches the device
// to platform 2 after open opens the UART and starts its receive thread,
// which start-up does only for a device that was on platform 2 from open.
bool SimCommands::open_uart(std::string *error) {
    atcmd_client::Module &m = console_.module();
    if (!uart_.plug_uart()) {
        *error = "cannot present the UART";
        return false;
    }
    auto *uart_init = m.sym<int(int *)>("UART_init");
    auto *uart_fd = m.sym<int>("g_uart_fd");
    auto *rx_body = m.sym<void *(void *)>("atcmder_uartRx_thread");
    auto *rx_thread = m.sym<pthread_t>("g_uartRx_thread");
    if (uart_init == nullptr || uart_init(uart_fd) != 0 ||
        pthread_create(rx_thread, nullptr, rx_body, nullptr) != 0) {
        *error = "cannot open the UART in the module";
        return false;
    }
    __atomic_store_n(&console_.device()->system_status.platform, ATCMD_PLATFORM_UART,
                     __ATOMIC_RELAXED);
    return true;
}

}  // namespace atcmd_demo
