// The two serial links to the accessory: the UART /dev/ttyS4 and the virtual
// UART, the accessory's USB ACM node /dev/ttyACM<n>. Both are opened and
// configured the same way (460800 8N1, raw, blocking reads) and differ only
// in log tag and in the wording of a few set-up messages, so one
// implementation serves both, driven by a SerialLink description.
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

#include "core/log.h"
#include "core/relaxed.h"
#include "link/link_writer.h"
#include "platform/sysroot.h"

int g_uart_fd = -1;
int g_vuart_fd = -1;

namespace atcmd {
namespace {

// The public functions' names go into the log prefix of the shared steps
// below, so each link's lines name UART_init or VUART_Send, as a reader
// searching the log expects.
struct SerialLink {
    const char *tag;
    const char *init_fn;
    const char *setopt_fn;
    const char *send_fn;
    const char *fcntl_done;     // %d: what clearing the status flags returned
    const char *not_a_tty;
    const char *opened;         // %d: the descriptor (the UART's text leaves it out)
    const char *setopt_failed;
    const char *ready;          // %s %d: device path, descriptor
};

constexpr SerialLink kUart = {
    kTagUart,
    "UART_init",
    "UART_setOpt",
    "UART_Send",
    "serial fcntl=%d",
    "serial standard input is not a terminal device\n",
    "serial open success!",
    "serial Set opt Error\n",
    "Init uart %s successfully, uart fd is %d ",
};

constexpr SerialLink kVuart = {
    kTagVuart,
    "VUART_init",
    "VUART_setOpt",
    "VUART_Send",
    "serial fcntl=%d\n",
    "serial standard input is not a terminal device!",
    "serial open successfully, vuart fd is %d!",
    "Vserial Set opt Error!",
    "Init Vuart %s successfully, Vuart fd is %d ",
};

constexpr bool texts_take_their_arguments(const SerialLink &l, const char *opened) {
    return has_conversions(l.fcntl_done, "d") && has_conversions(l.not_a_tty, "") &&
           has_conversions(l.opened, opened) && has_conversions(l.setopt_failed, "") &&
           has_conversions(l.ready, "sd");
}
static_assert(texts_take_their_arguments(kUart, ""), "UART texts");
static_assert(texts_take_their_arguments(kVuart, "d"), "virtual UART texts");

constexpr char kUartPath[] = "/dev/ttyS4";
constexpr int kOpenFlags = O_RDWR | O_NOCTTY | O_NONBLOCK;
constexpr int kLineBaud = 460800;

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

// The steps after a successful open. On a failure the descriptor is closed
// but the caller's variable keeps its number: the callers store -1
// themselves before retrying.
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

// One write, no retry: a short write counts as a failure and whatever the
// line still holds is discarded. data is a NUL-terminated frame (it is
// logged as a string).
int serial_send(const SerialLink &link, int fd, const char *data, int len) {
    ssize_t n = len >= 0 ? write(fd, data, static_cast<size_t>(len)) : -1;
    if (n < len || n < 0) {
        ATLOGI_FN(link.send_fn, atcmd::kLogDetail, link.tag, "serial write device error\n");
        tcflush(fd, TCOFLUSH);
        return -1;
    }
    ATLOGI_FN(link.send_fn, atcmd::kLogDetail, link.tag, "serial send data is %s", data);
    return len;
}

}  // namespace

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

namespace {

// The transmit thread's serial links with their stall state; another thread
// that sends gets its own.
thread_local LinkWriter t_vuart{&g_vuart_fd, "Vuart"};
thread_local LinkWriter t_uart{&g_uart_fd, "uart"};

}  // namespace

int vuart_transmit(const char *text, size_t len) {
    WriteEnd end(t_vuart);
    if (end.fd() < 0) {
        ATLOGE_FN(kTransmitFn, kLogAlways, kTagManage, "Vuart is not open");
        return ATCMD_TX_VUART_CLOSED;
    }
    if (!t_vuart.ready(end, text)) return ATCMD_TX_DROPPED;
    VUART_Send(end.fd(), text, static_cast<int>(len));
    ATLOGI_FN(kTransmitFn, kLogDetail, kTagManage,
              "Vuart successfully send cmd len is %zu, data is %s", len, text);
    return 0;
}

int uart_transmit(const char *text, size_t len) {
    WriteEnd end(t_uart);
    if (end.fd() < 0) {
        ATLOGE_FN(kTransmitFn, kLogAlways, kTagManage, "uart is not open");
        return ATCMD_TX_UART_CLOSED;
    }
    if (!t_uart.ready(end, text)) return ATCMD_TX_DROPPED;
    UART_Send(end.fd(), text, static_cast<int>(len));
    ATLOGI_FN(kTransmitFn, kLogDetail, kTagManage,
              "uart successfully send cmd data len %zu, data is %s", len, text);
    return 0;
}

}  // namespace atcmd

using atcmd::kUart;
using atcmd::kVuart;

int UART_init(int *fd) {
    const int opened = open(atcmd::SysPath(atcmd::kUartPath).c_str(), atcmd::kOpenFlags);
    atcmd::publish(fd, opened);
    if (opened < 0) {
        ATLOGE(atcmd::kLogAlways, kUart.tag, "open AMLOGIC UART fails");
        return -1;
    }
    return atcmd::configure_opened(kUart, opened, atcmd::kUartPath);
}

int VUART_init(int *fd, int64_t acm) {
    if (!atcmd::acm_number_fits(acm)) {
        ATLOGE(atcmd::kLogAlways, kVuart.tag, "ttyACM number %lld does not fit the device path",
               static_cast<long long>(acm));
        return -1;
    }
    char path[16];
    snprintf(path, sizeof path, "/dev/ttyACM%ld", static_cast<long>(acm));
    const int opened = open(atcmd::SysPath(path).c_str(), atcmd::kOpenFlags);
    atcmd::publish(fd, opened);
    if (opened < 0) {
        int err = errno;
        // The stored descriptor (-1) is logged where the error number is named.
        ATLOGE(atcmd::kLogAlways, kVuart.tag, "open serial %s fails, error num is %d, error num is %s", path,
               opened, strerror(err));
        return -1;
    }
    return atcmd::configure_opened(kVuart, opened, path);
}

int UART_setOpt(int fd, int baud, int bits, char parity, int stop) {
    return atcmd::set_line(kUart, fd, baud, bits, parity, stop);
}

int VUART_setOpt(int fd, int baud, int bits, char parity, int stop) {
    return atcmd::set_line(kVuart, fd, baud, bits, parity, stop);
}

int UART_Recv(int fd, char *buf, int len, int timeout_ms) {
    return atcmd::serial_recv(fd, buf, len, timeout_ms);
}

int VUART_Recv(int fd, char *buf, int len, int timeout_ms) {
    return atcmd::serial_recv(fd, buf, len, timeout_ms);
}

int UART_Send(int fd, const char *data, int len) {
    return atcmd::serial_send(kUart, fd, data, len);
}

int VUART_Send(int fd, const char *data, int len) {
    return atcmd::serial_send(kVuart, fd, data, len);
}
