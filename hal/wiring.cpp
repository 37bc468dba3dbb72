#include "hal/wiring.h"

#include "device/reports.h"
#include "hal/wifi_control.h"
#include "link/serial_rx.h"
#include "protocol/frame_parser.h"
#include "protocol/reply_effects.h"
#include "protocol/timeout.h"

namespace atcmd {
namespace {

constexpr RxHooks kRxHooks = {cmd_Parse_from_buffer, notifyUartNotWork};

constexpr ReplyEffects kReplyEffects = {send_bt_mac, send_amlogic_ver, send_stateToMCU,
                                        atcmdprocess_wifi_stchange};

}  // namespace

void wire_layers() {
    set_rx_hooks(&kRxHooks);
    set_reply_effects(&kReplyEffects);
}

}  // namespace atcmd
