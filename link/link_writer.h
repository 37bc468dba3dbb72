// The transmit thread's way onto one link: each write goes through a
// write-only, non-blocking description of its own, opened for that write
// from the link's shared descriptor and closed after it. No write can block
// the transmit thread for ever, none can land on a number closed meanwhile,
// and nothing of a gone link is kept open (a held ttyACM would keep the
// accessory's next plug from getting the same name).
//
// Waiting: a write waits for room at most kStallAfterMs, looking every
// kPollSliceMs whether the link is still the same one. A link gone during
// the wait, or one that took nothing for the whole wait, drops the record
// with a log line and a count. After such a stall the link gets no more
// waiting: each record goes out if there is room at that moment and is
// dropped otherwise, until the link takes bytes again or is replaced. So a
// stalled peer never holds the transmit thread, and records meant for it
// never pile up.
#ifndef ATCMD_LINK_LINK_WRITER_H
#define ATCMD_LINK_LINK_WRITER_H

#include <stddef.h>
#include <stdint.h>

// What a link's send returns, and atcmder_Tx_process after it: 0, or one of
// these.
#define ATCMD_TX_VUART_CLOSED 5
#define ATCMD_TX_FIFO_WRITE_FAILED 14
#define ATCMD_TX_UART_CLOSED 15
#define ATCMD_TX_FIFO_CLOSED 16
// The link went away, or took nothing for a second, while the record waited
// to be written: the record was dropped (and logged).
#define ATCMD_TX_DROPPED 17

namespace atcmd {

// The sends of every link log as the transmit thread's routing function, as
// the field logs always have.
constexpr char kTransmitFn[] = "atcmder_Tx_process";

constexpr int kStallAfterMs = 1000;
constexpr int kPollSliceMs = 20;

enum class LinkWait { kReady, kGone, kStalled };

class WriteEnd;

class LinkWriter {
public:
    // name: how the log lines call the link ("Vuart", "uart", "wifi fifo").
    LinkWriter(const int *shared, const char *name) : shared_(shared), name_(name) {}

    // A description of the link for one write (the caller closes it); -1
    // when the link is closed.
    int open();
    // Waits, within the bounds above, until fd (from open) takes a line
    // without blocking.
    LinkWait wait_writable(int fd);
    // Logs a record that could not go out (as kTransmitFn), with the count
    // of such records on this link.
    void drop(LinkWait why, const char *text);
    // True once end can take the text; false with the record dropped.
    bool ready(const WriteEnd &end, const char *text);
    uint64_t dropped() const { return dropped_; }

private:
    const int *shared_;
    const char *name_;
    // The link the stall state belongs to: a new one starts unstalled.
    uint32_t generation_ = 0;
    int from_ = -1;
    bool stalled_ = false;
    uint64_t dropped_ = 0;
};

// One write's description, closed when it goes out of scope.
class WriteEnd {
public:
    explicit WriteEnd(LinkWriter &link) : fd_(link.open()) {}
    ~WriteEnd();
    WriteEnd(const WriteEnd &) = delete;
    WriteEnd &operator=(const WriteEnd &) = delete;
    int fd() const { return fd_; }

private:
    int fd_;
};

}  // namespace atcmd

#endif
