// The receive rules every link's receive thread follows: bytes are gathered
// into batches of whole lines, and every batch goes to the frame parser on
// the receiving thread.
#include "link/serial_rx.h"

#include <string.h>

#include "core/log.h"
#include "core/relaxed.h"

namespace atcmd {
namespace {

constexpr int kWaitForever = -1;

const RxHooks *g_rx_hooks = nullptr;

// The parser copies each line it finds; the scratch record only carries
// the header fields common to the batch.
void hand_to_parser(const char *text, uint8_t source) {
    const RxHooks *hooks = rx_hooks();
    if (hooks == nullptr) return;
    char line[ATCMD_TEXT_MAX] = {};
    AtCmder_t scratch;
    memset(&scratch, 0, sizeof scratch);
    scratch.source = source;
    scratch.data = line;
    hooks->parse(&scratch, text);
}

}  // namespace

void set_rx_hooks(const RxHooks *hooks) { publish(&g_rx_hooks, hooks); }

const RxHooks *rx_hooks() {
    const RxHooks *hooks = acquire_load(&g_rx_hooks);
    if (hooks == nullptr) ATLOGE(kLogAlways, kTagManage, "no receive hooks registered");
    return hooks;
}

BatchState RxBatch::add(size_t n) {
    size_t room_left = kRxBufferSize - fill_;
    fill_ += static_cast<uint32_t>(n < room_left ? n : room_left);
    buf_[fill_] = '\0';
    if (fill_ > kMaxBatch) return BatchState::kTooLong;
    if (fill_ < 2 || buf_[fill_ - 2] != '\r' || buf_[fill_ - 1] != '\n')
        return BatchState::kPartial;
    return BatchState::kComplete;
}

void RxBatch::clear() {
    memset(buf_, 0, fill_);
    fill_ = 0;
}

bool receive_once(const SerialRx &link, int fd, RxBatch *batch) {
    int n = link.recv(fd, batch->tail(), batch->room(), kWaitForever);
    if (n < 1) return false;
    switch (batch->add(static_cast<size_t>(n))) {
    case BatchState::kPartial:
        break;
    case BatchState::kTooLong:
        ATLOG_TEXT_FN(link.thread, kLogState, ANDROID_LOG_INFO, kTagManage, link.too_long, batch->text());
        batch->clear();
        break;
    case BatchState::kComplete:
        ATLOG_TEXT_FN(link.thread, kLogState, ANDROID_LOG_INFO, kTagManage, link.batch,
                      strlen(batch->text()), batch->text());
        hand_to_parser(batch->text(), link.source());
        batch->clear();
        break;
    }
    return true;
}

}  // namespace atcmd
