// Field capture: every byte the module reads from or writes to a link, and
// the events around them, recorded in a pcapng file that Wireshark opens as
// it is (and that the dissector and the replay tool read).
//
// Off unless the module's open starts it (hal/module.cpp, from the property
// persist.vendor.atcmd.capture). While off, each record point costs one
// predictable branch on a relaxed atomic flag: the bytes are not looked at,
// an event's text is not formatted.
//
// File format (pcapng, written in the host's byte order, which the Section
// Header Block's byte-order magic records; little-endian on every target):
//
//   Section Header Block   version 1.0, section length -1 (not computed),
//                          option shb_userappl "atcmdprocess".
//   Interface Description  one per interface, link type LINKTYPE_USER0 (147),
//   Blocks                 snap length 0 (no limit), options if_name and
//                          if_tsresol 6 (microseconds). The first five are
//                          written at the head of every file, always with
//                          these ids:
//                            0 "events"
//                            1 "uart ttyS4"
//                            2 "wifi fifo_rx"      (read by the module)
//                            3 "wifi fifo_tx"      (written by the module)
//                            4 "daemon fifo_cmd"   (written by the module)
//                          then "acm ttyACM<n>", one per node name, ids 5
//                          and up in the order the nodes were first used
//                          (kept across files, so an id means one node for
//                          the whole run).
//   Enhanced Packet Blocks one per read or write, with exactly the bytes
//                          that system call moved (a read's boundaries are
//                          kept: one block per read), time of the record in
//                          microseconds since the epoch (CLOCK_REALTIME),
//                          and the option epb_flags whose direction bits
//                          say 1 inbound (towards the module) or 2 outbound
//                          (from the module). Packets longer than
//                          kCaptureSnap keep their original length and
//                          their first kCaptureSnap bytes.
//
// Event packets (interface 0) are ASCII text, "<kind> <detail>", no NUL:
//   inbound:  "plug ttyACM0", "unplug ttyACM0"   (the USB link opened/closed)
//             "daemon running", "daemon heartbeat:12", ...   (the daemon's
//                                                 status texts, as given)
//             "client AT+SN?#13&1\r\n"   (a record the client queued)
//             "wifi_init 192.168.1.7", "wifi_stchange 0", "shake_hands"
//                                                (the client's other calls)
//   outbound: "message 13/13"   (cmd_id/seq_num handed to the client's
//                                callback)
//
// Bounded: a file is kept under the limit given to capture_start
// (kCaptureFileLimit, 16 MiB, by default). A block that would take it over
// renames it to "<path>.1", replacing an older one, and a fresh file starts
// with its own Section Header Block and every Interface Description Block
// again; so at most twice the limit is kept on disk.
//
// Each block is one write(2) on a descriptor opened with O_APPEND, under one
// lock: blocks of different threads never interleave, and a crash loses
// nothing that was written. A failed open or write is logged once and ends
// the capture; it never fails the module.
#ifndef ATCMD_CORE_CAPTURE_H
#define ATCMD_CORE_CAPTURE_H

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

namespace atcmd {

enum class CaptureIf : uint32_t {
    kEvents = 0,
    kUart = 1,
    kWifiRx = 2,
    kWifiTx = 3,
    kDaemonCmd = 4,
    kAcm = 5,  // the node last opened (capture_acm_node); ids 5 and up in the file
};

enum class CaptureDir : uint32_t { kIn = 1, kOut = 2 };

constexpr uint64_t kCaptureFileLimit = 16u * 1024 * 1024;
constexpr size_t kCaptureSnap = 4096;
constexpr uint32_t kLinkTypeUser0 = 147;

// The flag each record point tests; written only by capture_start/stop.
extern bool g_capture_on;

inline bool capture_on() { return __builtin_expect(__atomic_load_n(&g_capture_on, __ATOMIC_RELAXED), 0); }

// Starts recording into path (already resolved, see platform/sysroot.h),
// appending a new section when the file exists. An earlier capture is
// stopped first. False, after one log line, when the file cannot be written.
bool capture_start(const char *path, uint64_t limit = kCaptureFileLimit);
void capture_stop();

// The slow paths behind the record points below; call those instead.
void capture_write(CaptureIf iface, CaptureDir dir, const void *data, size_t len);
void capture_event_text(CaptureDir dir, const char *fmt, ...) __attribute__((format(printf, 2, 3)));

// The bytes one read or write moved: n is that call's result, so failures
// and end of file (n < 1) record nothing.
inline void capture_bytes(CaptureIf iface, CaptureDir dir, const void *data, ssize_t n) {
    if (capture_on() && n > 0) capture_write(iface, dir, data, static_cast<size_t>(n));
}

// The ACM node's number, told by its open, so that its bytes go to the
// interface "acm ttyACM<number>". Kept whether or not a capture runs.
void capture_acm_node(int64_t number);

}  // namespace atcmd

// An event packet; the arguments are evaluated only while a capture runs.
#define ATCMD_CAPTURE_EVENT(dir, fmt, ...)                                    \
    do {                                                                      \
        if (atcmd::capture_on()) atcmd::capture_event_text((dir), fmt, ##__VA_ARGS__); \
    } while (0)

#endif
