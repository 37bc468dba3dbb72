// The control protocol with the HID daemon, a separate process that owns the
// WiFi socket. Both sides must agree on these texts byte for byte. Platform
// ATCMD_PLATFORM_VUART runs the daemon as server, ATCMD_PLATFORM_UART as
// client.
#ifndef ATCMD_LINK_HID_PROTOCOL_H
#define ATCMD_LINK_HID_PROTOCOL_H

namespace atcmd {

constexpr const char kPropHidCmd[] = "vendor.hid_cmd";  // module -> daemon commands
constexpr const char kPropHidSts[] = "vendor.hid_sts";  // server address out, "exit" back
constexpr const char kPropTimeSync[] = "vendor.kavren.timesync";

constexpr const char kCmdStartServer[] = "start_server";
constexpr const char kCmdStartClient[] = "start_client";
constexpr const char kCmdStopServer[] = "stop_server";
constexpr const char kCmdStopClient[] = "stop_client";
constexpr const char kExit[] = "exit";  // on /dev/fifo_cmd, and the daemon's acknowledgement

constexpr const char kFifoRx[] = "/dev/fifo_rx";
constexpr const char kFifoTx[] = "/dev/fifo_tx";
constexpr const char kFifoCmd[] = "/dev/fifo_cmd";

}  // namespace atcmd

#endif
