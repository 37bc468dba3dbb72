// Batch gathering of the serial receive threads: bytes are collected until
// they end in "\r\n" and then go to the frame parser in one piece. Exposed
// for tests, which drive it over any descriptor without a thread.
#ifndef ATCMD_LINK_SERIAL_RX_H
#define ATCMD_LINK_SERIAL_RX_H

#include <stddef.h>
#include <stdint.h>

#include "atcmdprocess.h"
#include "core/log.h"


namespace atcmd {

constexpr size_t kRxBufferSize = 1024;
// A batch longer than this is dropped whole, even when it ends in "\r\n".
constexpr size_t kMaxBatch = 512;

enum class BatchState { kPartial, kComplete, kTooLong };

// The bytes gathered towards one batch, owned by one receive thread.
class RxBatch {
public:
    char *tail() { return buf_ + fill_; }
    int room() const { return static_cast<int>(kRxBufferSize - fill_); }
    // Accounts for n bytes just read into tail(). Only the last two bytes
    // decide completeness: a "\r\n" inside the batch does not end it.
    BatchState add(size_t n);
    const char *text() const { return buf_; }  // always NUL-terminated
    size_t size() const { return fill_; }
    void clear();

private:
    char buf_[kRxBufferSize + 1] = {};  // + the NUL behind a full buffer
    uint32_t fill_ = 0;
};

// What tells one link's receive thread from another's: its texts, how it
// reads, and which endpoint its lines come from.
struct SerialRx {
    const char *thread;    // the receive thread, as its log lines name it
    const char *too_long;  // %s: the dropped bytes
    const char *batch;     // %zu %s: length and text of a complete batch
    int (*recv)(int fd, char *buf, int len, int timeout_ms);
    uint8_t (*source)();   // asked once per complete batch
};

constexpr uint8_t from_mcu() { return ATCMD_EP_MCU; }


// Where the receive threads hand their work: a complete batch to the frame
// parser, and the news that the UART cannot be opened again to the timeout
// reporting. Both live in the protocol layer above, which registers them at
// start-up (hal/wiring.cpp) before any receive thread runs; a batch that
// arrives with none registered is logged and dropped.
struct RxHooks {
    int (*parse)(AtCmder_t *scratch, const char *batch);
    void (*uart_down)();
};
void set_rx_hooks(const RxHooks *hooks);
// The registered hooks, or nullptr after a log line.
const RxHooks *rx_hooks();

// One read from fd (waiting without limit) into batch; a batch that this
// read completes is handed to the frame parser as coming from the link's
// source, an over-long one is dropped. False on a receive failure (nothing read).
bool receive_once(const SerialRx &link, int fd, RxBatch *batch);

}  // namespace atcmd

#endif
