// Received batches of any content through the frame parser and on through
// every row's parser, as the dispatch thread runs them, with a client
// callback installed. No parser may write past a field, leave a field of the
// accessory record unterminated, or hand the client a text that is not one.
// The state is set so that no parser waits: both properties the reports
// read are set, and mode is never 1 (no WiFi tear-down).
#include <cutils/properties.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <string>

#include "atcmdprocess.h"
#include "fuzz/fuzz_quiet.h"
#include "protocol/dispatch.h"
#include "protocol/frame_parser.h"

namespace {

atcmdprocess_device_t *g_dev;

void must_end_within(const char *text, size_t width) {
    if (memchr(text, '\0', width) == nullptr) abort();
}

void check_callback(AT_CMD_CbMsg_t *msg) {
    if (msg->data == nullptr) return;
    switch (msg->cmd_id) {
    case ATCMD_ID_DTR: case ATCMD_ID_MMI1: case ATCMD_ID_PT:
        must_end_within(static_cast<const char *>(msg->data), ATCMD_TEXT_MAX);
        break;
    case ATCMD_ID_BTMAC: case ATCMD_ID_BLEMAC: case ATCMD_ID_VER: case ATCMD_ID_SN:
    case ATCMD_ID_SID: case ATCMD_ID_TYPE:
        must_end_within(static_cast<const char *>(msg->data), 32);
        break;
    default:
        break;
    }
}

void dispatch_all() {
    std::unique_ptr<char[]> text(new char[ATCMD_TEXT_MAX]);
    AtCmder_t rec{};
    rec.data = text.get();
    while (atcmder_dequeue(&Rx_head, &g_rxqueue_mutex, &rec) == ATCMD_Q_OK) atcmder_dispatch(&rec);
}

void run_as(int32_t platform, int32_t mode, uint8_t source, const char *input) {
    g_dev->system_status.platform = platform;
    g_dev->system_status.mode = mode;
    g_dev->system_status.wifi_status = -1;
    std::unique_ptr<char[]> text(new char[ATCMD_TEXT_MAX]);
    AtCmder_t scratch{};
    scratch.data = text.get();
    scratch.source = source;
    cmd_Parse_from_buffer(&scratch, input);
    dispatch_all();
    atcmder_queue_exit(&Tx_head, &g_txqueue_mutex);
    atcmder_queue_exit(&Timeout_head, &g_timeoutqueue_mutex);

    const kavren_devInfo_t &d = g_kavren_devInfo;
    for (const char *field : {d.sn, d.sid, d.type, d.ver_item0, d.ver_item1, d.ver_item2,
                              d.ver_item4, d.ver_item5, d.ver_item6, d.mac})
        must_end_within(field, 32);
    must_end_within(d.ver_item3, sizeof d.ver_item3);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    if (freopen("/dev/null", "w", stdout) == nullptr) return 0;
    atcmd_fuzz::silence_android_log();
    g_dev = atcmd_fuzz::install_device();
    g_dev->notify_callback = check_callback;
    property_set("net.bluetooth.macaddr", "AA:BB:CC:DD:EE:FF");
    property_set("ro.tavrinola.version", "V1.2");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string input(reinterpret_cast<const char *>(data), size);
    run_as(ATCMD_PLATFORM_VUART, ATCMD_MODE_NONE, ATCMD_EP_MCU, input.c_str());
    run_as(ATCMD_PLATFORM_UART, ATCMD_MODE_USB, ATCMD_EP_MCU, input.c_str());
    return 0;
}
