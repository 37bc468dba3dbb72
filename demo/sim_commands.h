// The "sim ..." commands of the demo session: the simulated accessory (on the
// USB node, and on the UART for the platform-2 part) and its WiFi daemon, in
// the same process as the console, so that the session is one script.
#ifndef ATCMD_DEMO_SIM_COMMANDS_H
#define ATCMD_DEMO_SIM_COMMANDS_H

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "console/interpreter.h"
#include "sim/sim.h"

namespace atcmd_demo {

class SimCommands {
public:
    // Prints the simulator's transcript through the console as it happens.
    SimCommands(std::string root, atcmd_console::Console &console);
    ~SimCommands();

    // words[0] == "sim": runs the command and returns true; false for any
    // other first word. *error is set when the command failed.
    bool run(const std::vector<std::string> &words, std::string *error);
    // The sim lines that are checks: "sim expect...".
    static bool is_check(const std::vector<std::string> &words);

private:
    // Where each side's check window starts, taken when the console opens one.
    struct Window {
        size_t usb = 0, uart = 0, daemon = 0;
        std::map<std::string, atsim::FileStamp> props;  // every key's last write
    };
    void take_window();
    bool expect_line(const std::string &who, const atcmd_console::Expectation &want,
                     std::string *error);
    bool expect_prop(const std::string &key, const std::string &value, std::string *error);
    void wait_for_receive_thread_gone();
    bool start_daemon();
    bool open_uart(std::string *error);

    const std::string root_;
    const std::string area_;  // the module's property store under root_
    atcmd_console::Console &console_;
    atsim::Transcript transcript_;
    atsim::Accessory usb_;
    atsim::Accessory uart_;
    std::unique_ptr<atsim::HidDaemon> daemon_;
    Window window_;
};

}  // namespace atcmd_demo

#endif
