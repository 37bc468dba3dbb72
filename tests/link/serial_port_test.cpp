#include "link/serial_port.h"

#include <gtest/gtest.h>
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

#include "atcmdprocess.h"
#include "harness/sysroot.h"
#include "link/acm_link.h"
#include "link/uart_link.h"
#include "sim/accessory.h"

namespace {

using atcmd::LineError;

// A pty forces 8 data bits and no parity, so the frame is checked on the
// settings themselves. The speed codes live in c_cflag's CBAUD bits.
TEST(LineSettings, FrameParityStopBitsAndRateTable) {
    const struct {
        int baud, bits;
        char parity;
        int stop;
        tcflag_t cflag, iflag;  // cflag: speed code and frame
    } rows[] = {
        {460800, 8, 'n', 1, B460800 | CS8, 0},
        {115200, 7, 'E', 2, B115200 | CS7 | PARENB | CSTOPB, INPCK | ISTRIP},
        {230400, 8, 'o', 1, B230400 | CS8 | PARENB | PARODD, INPCK | ISTRIP},
        {2048, 8, 'N', 1, B9600 | CS8, 0},
    };
    termios t{};
    for (const auto &r : rows) {
        SCOPED_TRACE(testing::Message() << r.baud << " " << r.bits << r.parity << r.stop);
        ASSERT_EQ(LineError::kNone, atcmd::make_line_settings(r.baud, r.bits, r.parity, r.stop, &t));
        EXPECT_EQ(CLOCAL | CREAD | r.cflag, t.c_cflag);
        EXPECT_EQ(r.iflag, t.c_iflag);
        EXPECT_EQ(0u, t.c_oflag | t.c_lflag) << "raw";
        EXPECT_EQ(1, t.c_cc[VTIME] * t.c_cc[VMIN]) << "VTIME and VMIN 1";
    }
    EXPECT_EQ(LineError::kDataSize, atcmd::make_line_settings(460800, 6, 'n', 1, &t));
    EXPECT_EQ(LineError::kParity, atcmd::make_line_settings(460800, 8, 'x', 1, &t));
    EXPECT_EQ(LineError::kStopBits, atcmd::make_line_settings(460800, 8, 'n', 3, &t));
}

// Both links open their node blocking at 460800, or fail without leaving a
// descriptor open. The virtual UART opens only the node its number names;
// numbers outside 0..9999 do not fit the path buffer and are refused even
// when such a node exists.
TEST(Init, UartAndVuartOpenTheirNodeOrFailWithoutLeaking) {
    atcmd_harness::TempSysroot root;
    int fd = 0;
    EXPECT_EQ(-1, UART_init(&fd));
    EXPECT_EQ(-1, fd);
    root.write_file("/dev/ttyS4", "not a terminal");
    EXPECT_EQ(-1, UART_init(&fd));
    EXPECT_EQ(-1, fcntl(fd, F_GETFD)) << "closed again";
    remove(root.path("/dev/ttyS4").c_str());
    atsim::Transcript transcript;
    atsim::Accessory uart(root.root(), transcript);
    ASSERT_TRUE(uart.plug_uart());
    ASSERT_EQ(0, UART_init(&fd));
    EXPECT_EQ(0, fcntl(fd, F_GETFL) & O_NONBLOCK);
    termios t;
    ASSERT_EQ(0, tcgetattr(fd, &t));
    EXPECT_EQ(B460800, cfgetospeed(&t));
    close(fd);

    const struct {
        int64_t acm;
        const char *node;  // nullptr: not created
        int result;
    } rows[] = {{0, "/dev/ttyACM0", 0},           {9999, "/dev/ttyACM9999", 0}, {3, nullptr, -1},
                {10000, "/dev/ttyACM10000", -1}, {-1, nullptr, -1}};
    for (const auto &r : rows) {
        atsim::Accessory acc(root.root(), transcript);
        if (r.node != nullptr) {
            ASSERT_TRUE(acc.plug_usb(static_cast<int>(r.acm)));
        }
        fd = -1;
        EXPECT_EQ(r.result, VUART_init(&fd, r.acm)) << r.acm;
        EXPECT_EQ(r.result == 0, fd >= 0 && isatty(fd)) << r.acm;
        if (fd >= 0) close(fd);
    }
}

// Time-outs are in milliseconds, -1 waits as long as it takes; a write is
// tried once, and a non-blocking pipe takes only 64 KiB of this one.
TEST(SerialIo, BytesPassUnchangedTimeOutsAreMillisecondsShortWritesFail) {
    atcmd_harness::TempSysroot root;
    atsim::Transcript transcript;
    atsim::Accessory pty(root.root(), transcript);
    ASSERT_TRUE(pty.plug_uart());
    pty.set_auto_answer(false);
    const std::string frame = "AT+VER?#11&1\r\n";
    EXPECT_EQ(14, VUART_Send(pty.slave_fd(), frame.c_str(), 14));
    EXPECT_EQ(frame, pty.take_output());

    char buf[16] = {};
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(-1, UART_Recv(pty.slave_fd(), buf, sizeof buf, 300));
    EXPECT_GE(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(300));
    std::thread writer([&] { usleep(200 * 1000); pty.send("+OK\r\n"); });
    EXPECT_EQ(5, VUART_Recv(pty.slave_fd(), buf, sizeof buf, -1));
    EXPECT_STREQ("+OK\r\n", buf);
    writer.join();
    EXPECT_EQ(-1, UART_Recv(-1, buf, sizeof buf, -1)) << "nothing to wait on";

    int p[2];
    ASSERT_EQ(0, pipe2(p, O_NONBLOCK));
    EXPECT_EQ(-1, UART_Send(p[1], std::string(70000, 'x').c_str(), 70000));
    close(p[0]);
    close(p[1]);
}

}  // namespace
