// Factory test traffic: numbered "AT+PTEST" lines streamed to the accessory,
// which echoes the pattern back (PTEST_parser checks it). The client starts
// the thread when a production test wants it; nothing in the module does.
#include <stdio.h>
#include <sys/prctl.h>
#include <unistd.h>

#include "core/device_state.h"
#include "core/log.h"
#include "core/queue.h"
#include "device/factory.h"

pthread_t g_TestTx_thread;

namespace {

constexpr useconds_t kTestLinePeriodUs = 100000;

}  // namespace

// Only the UART side streams; elsewhere the call returns at once.
int send_ptest_data(uint32_t index) {
    char text[ATCMD_TEXT_MAX] = {};
    AtCmder_t rec = {};
    if (atcmd::current_platform() != ATCMD_PLATFORM_UART) return 0;
    snprintf(text, sizeof text, "AT+PTEST=%s#%u&2\r\n", (index & 1) != 0 ? "987654321" : "123456789",
             index);
    rec.dest = ATCMD_EP_MCU;
    rec.data = text;
    return atcmd::queue_put(atcmd::kTxQueue, &rec);
}

namespace atcmd {

void test_tx_step(uint32_t *index, uint32_t *round) {
    send_ptest_data(*index);
    ++*index;
    // The round advances inside the statement, once per output it writes
    // (standard output, the Android log, the file): the field tools that
    // read these logs count rounds that way.
    if ((*index & 0xffff) == 0 && log_level >= atcmd::kLogState)
        ATLOGI_FN("atcmder_TestTx_thread", atcmd::kLogState, kTagManage,
                  "atcmder_TestTx_thread index clear to 0, round is %d!", ++*round);
}

}  // namespace atcmd

void *atcmder_TestTx_thread(void *) {
    prctl(PR_SET_NAME, "Test_thread");
    ATLOGI(atcmd::kLogState, atcmd::kTagManage, "atcmder_TestTx_thread is running!");
    uint32_t index = 0;
    uint32_t round = 0;
    for (;;) {
        atcmd::test_tx_step(&index, &round);
        usleep(kTestLinePeriodUs);
    }
    return nullptr;
}
