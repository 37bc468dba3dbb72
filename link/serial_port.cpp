// What the two serial links to the accessory share: the UART /dev/ttyS4
// (link/uart_link.cpp) and the virtual UART, the accessory's USB ACM node
// /dev/ttyACM<n> (link/acm_link.cpp). Both are opened and configured the same
// way (460800 8N1, raw, blocking reads) and differ only in log tag and in the
// wording of a few set-up messages, so one implementation serves both,
// driven by each link's SerialLink description.
//
// No locks here: each descriptor has one reader (its receive thread) and one
// writer (the transmit thread); callers close the old descriptor and store -1
// before they call an init again. The init functions publish the new
// descriptor into the caller's variable, which may be a shared global, once
// (relaxed.h) and then work on their own copy.
#include "link/serial_port.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "core/capture.h"
#include "core/log.h"

namespace atcmd {
namespace {

struct BaudRow {
    int rate;
    speed_t code;
};

constexpr BaudRow kBaudTable[] = {
    {2400, B2400},     {4800, B4800},     {9600, B9600},
    {19200, B19200},   {38400, B38400},   {57600, B57600},
    {115200, B115200}, {230400, B230400}, {460800, B460800},
};

speed_t baud_code(int baud) {
    for (const BaudRow &row : kBaudTable)
        if (row.rate == baud) return row.code;
    return B9600;
}

// Indexed by LineError; every refusal is logged at level 4.
constexpr const char *kLineErrorText[] = {
    nullptr,
    "Unsupported data size\n",
    "serial Unsupported parity\n",
    "serial Unsupported stop bits\n",
};

}  // namespace

int set_line(const SerialLink &link, int fd, int baud, int bits, char parity, int stop) {
    termios current;
    if (tcgetattr(fd, &current) != 0) {
        ATLOGE_FN(link.setopt_fn, atcmd::kLogAlways, link.tag, "serial SetupSerial 1");
        return -1;
    }
    termios settings;
    LineError err = make_line_settings(baud, bits, parity, stop, &settings);
    if (err != LineError::kNone) {
        ATLOGI_FN(link.setopt_fn, atcmd::kLogDetail, link.tag, "%s", kLineErrorText[static_cast<int>(err)]);
        return -1;
    }
    if (!baud_is_known(baud))
        ATLOGI_FN(link.setopt_fn, atcmd::kLogDetail, link.tag,
                  "serial Sorry, Unsupported baud rate, set default 9600!");
    tcflush(fd, TCIFLUSH);
    if (tcsetattr(fd, TCSANOW, &settings) != 0) {
        perror("SetupSerial 3");
        return -1;
    }
    ATLOGI_FN(link.setopt_fn, atcmd::kLogDetail, link.tag, "Serial set done!");
    return 0;
}

int configure_opened(const SerialLink &link, int fd, const char *path) {
    int r = fcntl(fd, F_SETFL, 0);  // blocking reads from here on
    if (r < 0)
        ATLOGI_FN(link.init_fn, atcmd::kLogDetail, link.tag, "serial fcntl failed!");
    else
        ATLOG_TEXT_FN(link.init_fn, atcmd::kLogDetail, ANDROID_LOG_INFO, link.tag, link.fcntl_done, r);

    if (!isatty(fd)) {
        ATLOGI_FN(link.init_fn, atcmd::kLogDetail, link.tag, "%s", link.not_a_tty);
        close(fd);
        return -1;
    }
    ATLOG_TEXT_FN(link.init_fn, atcmd::kLogDetail, ANDROID_LOG_INFO, link.tag, link.opened, fd);

    if (set_line(link, fd, kLineBaud, 8, 'n', 1) != 0) {
        ATLOGI_FN(link.init_fn, atcmd::kLogDetail, link.tag, "%s", link.setopt_failed);
        close(fd);
        return -1;
    }
    tcflush(fd, TCIOFLUSH);
    fcntl(fd, F_SETFL, 0);
    ATLOG_TEXT_FN(link.init_fn, atcmd::kLogState, ANDROID_LOG_INFO, link.tag, link.ready, path, fd);
    return 0;
}

// poll rather than select: an fd_set cannot hold a negative descriptor or
// one at or above FD_SETSIZE, and a fortified FD_SET aborts on either. A
// negative time-out waits without limit, which the blocking read does by
// itself (the receive threads' case: one system call per read, not two).
int serial_recv(int fd, char *buf, int len, int timeout_ms) {
    if (fd >= 0 && timeout_ms >= 0) {
        pollfd p = {fd, POLLIN, 0};
        if (poll(&p, 1, timeout_ms) == 0) return -1;
    }
    // Any other outcome, an error included, is left to the read to report.
    return static_cast<int>(read(fd, buf, len > 0 ? static_cast<size_t>(len) : 0));
}

int serial_send(const SerialLink &link, int fd, const char *data, int len) {
    ssize_t n = len >= 0 ? write(fd, data, static_cast<size_t>(len)) : -1;
    // What reached the line, a short write's part included.
    capture_bytes(link.tag == kTagUart ? CaptureIf::kUart : CaptureIf::kAcm, CaptureDir::kOut, data, n);
    if (n < len || n < 0) {
        ATLOGI_FN(link.send_fn, atcmd::kLogDetail, link.tag, "serial write device error\n");
        tcflush(fd, TCOFLUSH);
        return -1;
    }
    ATLOGI_FN(link.send_fn, atcmd::kLogDetail, link.tag, "serial send data is %s", data);
    return len;
}

int serial_transmit(const SerialLink &link, LinkWriter &writer, const char *text, size_t len) {
    WriteEnd end(writer);
    if (end.fd() < 0) {
        ATLOGE_FN(kTransmitFn, kLogAlways, kTagManage, "%s", link.not_open);
        return link.closed;
    }
    if (!writer.ready(end, text)) return ATCMD_TX_DROPPED;
    serial_send(link, end.fd(), text, static_cast<int>(len));
    ATLOG_TEXT_FN(kTransmitFn, kLogDetail, ANDROID_LOG_INFO, kTagManage, link.sent, len, text);
    return 0;
}

bool baud_is_known(int baud) {
    for (const BaudRow &row : kBaudTable)
        if (row.rate == baud) return true;
    return false;
}

LineError make_line_settings(int baud, int bits, char parity, int stop, termios *out) {
    termios t;
    memset(&t, 0, sizeof t);
    t.c_cflag = CLOCAL | CREAD;

    if (bits == 7)
        t.c_cflag |= CS7;
    else if (bits == 8)
        t.c_cflag |= CS8;
    else
        return LineError::kDataSize;

    switch (parity) {
    case 'E': case 'e':
        t.c_cflag |= PARENB;
        t.c_iflag = INPCK | ISTRIP;
        break;
    case 'O': case 'o':
        t.c_cflag |= PARENB | PARODD;
        t.c_iflag = INPCK | ISTRIP;
        break;
    case 'N': case 'n':
        break;
    default:
        return LineError::kParity;
    }

    if (stop == 2)
        t.c_cflag |= CSTOPB;
    else if (stop == 1)
        t.c_cflag &= ~CSTOPB;
    else
        return LineError::kStopBits;

    speed_t code = baud_code(baud);
    cfsetispeed(&t, code);
    cfsetospeed(&t, code);
    t.c_cc[VTIME] = 1;
    t.c_cc[VMIN] = 1;
    *out = t;
    return LineError::kNone;
}

}  // namespace atcmd
