// Received bytes of any content and length go through the frame parser and
// the hand-off, once as a plain receiver (platform 1) and once as the bridge
// between the WiFi peer and the MCU (platform 2, WiFi cast), so that both the
// receive queue and the relay to the transmit queue are exercised. Every
// record handed on must be one whole line that fits its text buffer, and the
// parser's whole-line path must leave exactly what the character rules
// leave: the same records on both queues and the same scratch record.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <string>

#include "atcmdprocess.h"
#include "fuzz/fuzz_quiet.h"
#include "protocol/frame_parser.h"

namespace {

atcmdprocess_device_t *g_dev;

std::string parse_with(int (*parse)(AtCmder_t *, const char *), uint8_t source, const char *input) {
    // Exactly the 160 bytes a receive thread owns, so any overrun is caught.
    std::unique_ptr<char[]> text(new char[ATCMD_TEXT_MAX]);
    AtCmder_t scratch{};
    scratch.data = text.get();
    scratch.source = source;
    parse(&scratch, input);
    std::string out = atcmd_fuzz::drain_records(&Rx_head, &g_rxqueue_mutex) + "|" +
                      atcmd_fuzz::drain_records(&Tx_head, &g_txqueue_mutex) + "|";
    scratch.data = nullptr;
    out.append(reinterpret_cast<const char *>(&scratch), sizeof scratch);
    return out.append(text.get(), ATCMD_TEXT_MAX);
}

void parse_as(int32_t platform, int32_t mode, uint8_t source, const char *input) {
    g_dev->system_status.platform = platform;
    g_dev->system_status.mode = mode;
    if (parse_with(cmd_Parse_from_buffer, source, input) !=
        parse_with(atcmd::parse_char_by_char, source, input))
        abort();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    if (freopen("/dev/null", "w", stdout) == nullptr) return 0;
    atcmd_fuzz::silence_android_log();
    g_dev = atcmd_fuzz::install_device();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string input(reinterpret_cast<const char *>(data), size);
    parse_as(1, -1, ATCMD_EP_MCU, input.c_str());
    parse_as(2, 1, ATCMD_EP_MPHONE, input.c_str());
    return 0;
}
