// The pcapng writer behind core/capture.h. Everything it keeps is guarded by
// one lock, taken by the recording thread for the whole of a block: the
// time stamp is read under it too, so blocks lie in the file in time order.
// The lock is a leaf (only the log's lock is taken inside it), and no thread
// that is ended by a signal holds it: the WiFi threads take SIGALRM only in
// their waits.
#include "core/capture.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "core/lock_guard.h"
#include "core/log.h"

namespace atcmd {

bool g_capture_on = false;

namespace {

constexpr uint32_t kShbType = 0x0A0D0D0A;
constexpr uint32_t kIdbType = 0x00000001;
constexpr uint32_t kEpbType = 0x00000006;
constexpr uint32_t kByteOrderMagic = 0x1A2B3C4D;
constexpr uint16_t kOptEnd = 0;
constexpr uint16_t kShbUserAppl = 4;
constexpr uint16_t kIfName = 2;
constexpr uint16_t kIfTsresol = 9;
constexpr uint16_t kEpbFlags = 2;

// The interfaces every file starts with, in the order of their ids.
constexpr const char *kFixedIfNames[] = {"events", "uart ttyS4", "wifi fifo_rx", "wifi fifo_tx",
                                         "daemon fifo_cmd"};
constexpr uint32_t kFixedIfs = sizeof kFixedIfNames / sizeof kFixedIfNames[0];
// A phone sees a handful of ACM node names over a run; the bytes of any
// beyond this many are not recorded.
constexpr size_t kMaxAcmNodes = 32;
// Any block: an Enhanced Packet Block with kCaptureSnap bytes and its option.
constexpr size_t kBlockMax = kCaptureSnap + 64;

int64_t g_acm_node = -1;
pthread_mutex_t g_lock = PTHREAD_MUTEX_INITIALIZER;

struct Writer {
    int fd = -1;
    char path[PATH_MAX] = {};
    uint64_t limit = 0;
    uint64_t size = 0;        // bytes in the current file
    uint64_t fresh_size = 0;  // what a fresh file's header blocks take
    int64_t acm[kMaxAcmNodes] = {};
    size_t acm_count = 0;
    uint8_t block[kBlockMax] = {};
};
Writer g_writer;

// Lays out one block: type, length, body, options, length again, every
// field in host order and every variable part padded to 32 bits.
class Block {
public:
    Block(uint8_t *out, uint32_t type) : b_(out) {
        u32(type);
        u32(0);  // total length, filled in by finish
    }
    void u16(uint16_t v) { put(&v, sizeof v); }
    void u32(uint32_t v) { put(&v, sizeof v); }
    void u64(uint64_t v) { put(&v, sizeof v); }
    void padded(const void *p, size_t len) {
        put(p, len);
        while (n_ % 4 != 0) b_[n_++] = 0;
    }
    void option(uint16_t code, const void *p, size_t len) {
        u16(code);
        u16(static_cast<uint16_t>(len));
        padded(p, len);
    }
    size_t finish() {
        option(kOptEnd, nullptr, 0);
        const uint32_t total = static_cast<uint32_t>(n_ + 4);
        u32(total);
        memcpy(b_ + 4, &total, sizeof total);
        return n_;
    }

private:
    void put(const void *p, size_t len) {
        if (len > 0) memcpy(b_ + n_, p, len);
        n_ += len;
    }
    uint8_t *b_;
    size_t n_ = 0;
};

size_t section_header(uint8_t *out) {
    Block b(out, kShbType);
    b.u32(kByteOrderMagic);
    b.u16(1);  // major version
    b.u16(0);  // minor version
    b.u64(UINT64_MAX);  // section length: not known while writing
    static const char kAppl[] = "atcmdprocess";
    b.option(kShbUserAppl, kAppl, sizeof kAppl - 1);
    return b.finish();
}

size_t interface_description(uint8_t *out, const char *name) {
    Block b(out, kIdbType);
    b.u16(static_cast<uint16_t>(kLinkTypeUser0));
    b.u16(0);  // reserved
    b.u32(0);  // snap length: none
    b.option(kIfName, name, strlen(name));
    const uint8_t micro = 6;
    b.option(kIfTsresol, &micro, 1);
    return b.finish();
}

void acm_name(int64_t number, char *out, size_t n) {
    snprintf(out, n, "acm ttyACM%lld", static_cast<long long>(number));
}

// Header block i of a file: the section header, the fixed interfaces, then
// the ACM nodes known so far. 0 past the last.
size_t header_block(const Writer &w, size_t i, uint8_t *out) {
    if (i == 0) return section_header(out);
    if (i <= kFixedIfs) return interface_description(out, kFixedIfNames[i - 1]);
    if (i - kFixedIfs - 1 >= w.acm_count) return 0;
    char name[32];
    acm_name(w.acm[i - kFixedIfs - 1], name, sizeof name);
    return interface_description(out, name);
}

uint64_t header_bytes(Writer &w) {
    uint64_t total = 0;
    for (size_t i = 0, n; (n = header_block(w, i, w.block)) > 0; ++i) total += n;
    return total;
}

void set_on(bool on) { __atomic_store_n(&g_capture_on, on, __ATOMIC_RELAXED); }

void close_locked(Writer &w) {
    set_on(false);
    if (w.fd >= 0) close(w.fd);
    w.fd = -1;
}

// Ends the capture; the one line a failure gets.
void capture_failed(Writer &w, const char *what, int err) {
    ATLOGE(kLogAlways, kTagHal, "packet capture to %s stopped: %s failed: %s", w.path, what,
           strerror(err));
    close_locked(w);
}

bool put_locked(Writer &w, const uint8_t *p, size_t n) {
    const ssize_t done = write(w.fd, p, n);
    if (done != static_cast<ssize_t>(n)) {
        capture_failed(w, "write", done < 0 ? errno : ENOSPC);
        return false;
    }
    w.size += n;
    return true;
}

bool write_headers_locked(Writer &w) {
    for (size_t i = 0, n; (n = header_block(w, i, w.block)) > 0; ++i)
        if (!put_locked(w, w.block, n)) return false;
    w.fresh_size = header_bytes(w);
    return true;
}

// The open a start and every rollover make. errno on failure.
int open_locked(Writer &w) {
    w.fd = open(w.path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (w.fd < 0) return errno;
    struct stat st;
    w.size = fstat(w.fd, &st) == 0 ? static_cast<uint64_t>(st.st_size) : 0;
    return 0;
}

bool rotate_locked(Writer &w) {
    close(w.fd);
    w.fd = -1;
    char older[PATH_MAX + 2];
    snprintf(older, sizeof older, "%s.1", w.path);
    if (rename(w.path, older) != 0 && errno != ENOENT) {
        capture_failed(w, "rename to .1", errno);
        return false;
    }
    if (const int err = open_locked(w)) {
        capture_failed(w, "open after rollover", err);
        return false;
    }
    return write_headers_locked(w);
}

// A block of n bytes, built in w.block, goes to the file; the file rolls
// over first when the block would take it past the limit, unless the file
// holds nothing but its headers (a block larger than the limit goes alone).
// The block is built again after a rollover, which used w.block.
template <typename Build>
void emit_locked(Writer &w, Build build) {
    size_t n = build();
    if (w.size + n > w.limit && w.size > w.fresh_size) {
        if (!rotate_locked(w)) return;
        n = build();
    }
    put_locked(w, w.block, n);
}

// The file's interface id for ACM node number, its description written
// when the node is new. -1 when it gets none.
int acm_interface_locked(Writer &w, int64_t number) {
    if (number < 0) return -1;
    for (size_t i = 0; i < w.acm_count; ++i)
        if (w.acm[i] == number) return static_cast<int>(kFixedIfs + i);
    if (w.acm_count == kMaxAcmNodes) return -1;
    char name[32];
    acm_name(number, name, sizeof name);
    emit_locked(w, [&] { return interface_description(w.block, name); });
    if (w.fd < 0) return -1;
    w.acm[w.acm_count++] = number;
    w.fresh_size = header_bytes(w);
    return static_cast<int>(kFixedIfs + w.acm_count - 1);
}

}  // namespace

bool capture_start(const char *path, uint64_t limit) {
    MutexGuard guard(&g_lock);
    Writer &w = g_writer;
    close_locked(w);
    w.limit = limit;
    w.acm_count = 0;
    snprintf(w.path, sizeof w.path, "%s", path);
    if (const int err = open_locked(w)) {
        ATLOGE(kLogAlways, kTagHal, "packet capture to %s not started: cannot open it: %s", w.path,
               strerror(err));
        return false;
    }
    // A file left by an earlier run gets a new section, or rolls over at
    // once when that section's headers would not fit under the limit.
    const bool fits = w.size == 0 || w.size + header_bytes(w) <= w.limit;
    if (!(fits ? write_headers_locked(w) : rotate_locked(w))) return false;
    set_on(true);
    ATLOGI(kLogState, kTagHal, "packet capture to %s, at most %llu bytes a file", w.path,
           static_cast<unsigned long long>(w.limit));
    return true;
}

void capture_stop() {
    MutexGuard guard(&g_lock);
    close_locked(g_writer);
}

void capture_acm_node(int64_t number) { __atomic_store_n(&g_acm_node, number, __ATOMIC_RELAXED); }

void capture_write(CaptureIf iface, CaptureDir dir, const void *data, size_t len) {
    MutexGuard guard(&g_lock);
    Writer &w = g_writer;
    if (w.fd < 0) return;
    int id = static_cast<int>(iface);
    if (iface == CaptureIf::kAcm) id = acm_interface_locked(w, __atomic_load_n(&g_acm_node, __ATOMIC_RELAXED));
    if (id < 0) return;
    const size_t kept = len < kCaptureSnap ? len : kCaptureSnap;
    emit_locked(w, [&] {
        timespec now;
        clock_gettime(CLOCK_REALTIME, &now);
        const uint64_t us = static_cast<uint64_t>(now.tv_sec) * 1000000u +
                            static_cast<uint64_t>(now.tv_nsec) / 1000u;
        Block b(w.block, kEpbType);
        b.u32(static_cast<uint32_t>(id));
        b.u32(static_cast<uint32_t>(us >> 32));
        b.u32(static_cast<uint32_t>(us));
        b.u32(static_cast<uint32_t>(kept));
        b.u32(static_cast<uint32_t>(len));
        b.padded(data, kept);
        const uint32_t flags = static_cast<uint32_t>(dir);
        b.option(kEpbFlags, &flags, sizeof flags);
        return b.finish();
    });
}

void capture_event_text(CaptureDir dir, const char *fmt, ...) {
    char text[512];
    va_list ap;
    va_start(ap, fmt);
    const int n = vsnprintf(text, sizeof text, fmt, ap);
    va_end(ap);
    if (n < 0) return;
    const size_t len = static_cast<size_t>(n) < sizeof text ? static_cast<size_t>(n) : sizeof text - 1;
    capture_write(CaptureIf::kEvents, dir, text, len);
}

}  // namespace atcmd
