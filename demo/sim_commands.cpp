#include "demo/sim_commands.h"

#include <pthread.h>
#include <stdio.h>

#include <chrono>
#include <ostream>
#include <thread>

namespace atcmd_demo {
namespace {

using namespace std::chrono_literals;

// The module in the demo's process hears the daemon the way a client does:
// the client forwards each status text to the device.
atcmdprocess_device_t *g_device;

std::string rest_of(const std::vector<std::string> &words, size_t from) {
    std::string s;
    for (size_t i = from; i < words.size(); ++i) s += (i > from ? " " : "") + words[i];
    return s;
}

}  // namespace

SimCommands::SimCommands(std::string root, atcmd_console::Console &console)
    : root_(std::move(root)), console_(console), usb_(root_, transcript_),
      uart_(root_, transcript_) {
    transcript_.set_listener([this](const atsim::Event &e) {
        char stamp[32];
        snprintf(stamp, sizeof stamp, "%.3f", e.t);
        console_.print(std::string(stamp) + " " + e.who + " " + atsim::escape(e.text));
    });
}

SimCommands::~SimCommands() { transcript_.set_listener(nullptr); }

bool SimCommands::run(const std::vector<std::string> &words, std::string *error) {
    if (words.empty() || words[0] != "sim") return false;
    const std::string cmd = words.size() > 1 ? words[1] : "";
    const std::string arg = rest_of(words, 2);
    bool ok = true;
    if (cmd == "plug") {
        // A person replugging takes longer than the module needs to notice
        // the last unplug (its receive thread rechecks after 300 ms); a
        // script does not, so it waits for that thread to be gone.
        const pthread_t *rx = console_.module().sym<pthread_t>("g_VuartRx_thread");
        const auto deadline = std::chrono::steady_clock::now() + 3s;
        while (rx != nullptr && __atomic_load_n(rx, __ATOMIC_RELAXED) != 0 &&
               std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(10ms);
        ok = usb_.plug_usb(0);
    } else if (cmd == "unplug") {
        usb_.unplug();
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
        atcmd_console::Module &m = console_.module();
        daemon_ = std::make_unique<atsim::HidDaemon>(
            root_,
            atsim::PropertyStore{m.sym<int(const char *, char *, const char *)>("property_get"),
                                 m.sym<int(const char *, const char *)>("property_set")},
            transcript_);
        g_device = console_.device();
        daemon_->on_status([](const std::string &text) { g_device->hiddemon_stchange(text.c_str()); });
        ok = daemon_->ok();
    } else if (cmd == "peer" && daemon_) {
        ok = daemon_->send_to_module(arg + "\r\n");
    } else if (cmd == "uart") {
        ok = open_uart(error);
    } else if (cmd == "expect" && words.size() > 3) {
        // sim expect mcu|uart|daemon TEXT: a line the accessory side received.
        const std::string &who = words[2];
        return expect(who == "mcu" ? &usb_ : who == "uart" ? &uart_ : nullptr,
                      who == "daemon" ? daemon_.get() : nullptr, 1, rest_of(words, 3), error);
    } else if (cmd == "expect-prop" && words.size() == 4) {
        // sim expect-prop KEY VALUE: what the phone set, as the platform sees it.
        auto *get = console_.module().sym<int(const char *, char *, const char *)>("property_get");
        const auto deadline = std::chrono::steady_clock::now() + 5s;
        char value[92] = "";
        while (get(words[2].c_str(), value, "") >= 0 && words[3] != value &&
               std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(10ms);
        if (words[3] != value) *error = words[2] + " is \"" + value + "\", not " + words[3];
        return true;
    } else if (cmd == "expect-count" && words.size() > 4) {
        const std::string &who = words[2];
        return expect(who == "mcu" ? &usb_ : &uart_, nullptr, std::stoul(words[3]),
                      rest_of(words, 4), error);
    } else {
        *error = "unknown sim command: " + rest_of(words, 1);
        return true;
    }
    if (!ok && error->empty()) *error = "sim " + cmd + " failed";
    return true;
}

// Waits up to 5 s until `count` received lines contain `text`.
bool SimCommands::expect(atsim::Accessory *acc, atsim::HidDaemon *daemon, size_t count,
                         const std::string &text, std::string *error) {
    auto matches = [&] {
        size_t n = 0;
        for (const std::string &l : acc != nullptr ? acc->received() : daemon->received())
            n += l.find(text) != std::string::npos;
        return n >= count;
    };
    const auto deadline = std::chrono::steady_clock::now() + 5s;
    while (!matches()) {
        if ((acc == nullptr && daemon == nullptr) || std::chrono::steady_clock::now() > deadline) {
            *error = "the accessory side did not receive " + text;
            return true;
        }
        std::this_thread::sleep_for(10ms);
    }
    return true;
}

// Platform 2: the accessory on the UART. A client that switches the device
// to platform 2 after open opens the UART and starts its receive thread,
// which start-up does only for a device that was on platform 2 from open.
bool SimCommands::open_uart(std::string *error) {
    atcmd_console::Module &m = console_.module();
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
