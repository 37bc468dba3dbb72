// The "sim ..." commands of the demo session: the simulated accessory (on the
// USB node, and on the UART for the platform-2 part) and its WiFi daemon, in
// the same process as the console, so that the session is one script.
#ifndef ATCMD_DEMO_SIM_COMMANDS_H
#define ATCMD_DEMO_SIM_COMMANDS_H

#include <iosfwd>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "console/interpreter.h"
#include "sim/sim.h"

namespace atcmd_demo {

class SimCommands {
public:
    // Prints the simulator's transcript to out as it happens.
    SimCommands(std::string root, atcmd_console::Console &console);
    ~SimCommands();

    // words[0] == "sim": runs the command and returns true; false for any
    // other first word. *error is set when the command failed.
    bool run(const std::vector<std::string> &words, std::string *error);

private:
    bool expect(atsim::Accessory *acc, atsim::HidDaemon *daemon, size_t count,
                const std::string &text, std::string *error);
    bool open_uart(std::string *error);

    const std::string root_;
    atcmd_console::Console &console_;
    atsim::Transcript transcript_;
    atsim::Accessory usb_;
    atsim::Accessory uart_;
    std::unique_ptr<atsim::HidDaemon> daemon_;
};

}  // namespace atcmd_demo

#endif
