#include "link/serial_port.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

#include "atcmdprocess.h"
#include "fixtures/log_capture.h"
#include "fixtures/pty_link.h"
#include "fixtures/sysroot.h"

namespace {

using ::testing::HasSubstr;
using atcmd::LineError;
using atcmd_test::PtyLink;
using atcmd_test::stdout_of;

// A pty forces 8 data bits and no parity, so the frame is checked on the
// settings themselves.
TEST(LineSettings, FrameParityStopBitsAndRateTable) {
    struct Row {
        int baud, bits;
        char parity;
        int stop;
        LineError err;
        speed_t speed;
        tcflag_t cflag, iflag;
    };
    const Row rows[] = {
        {460800, 8, 'n', 1, LineError::kNone, B460800, CS8, 0},
        {115200, 7, 'E', 2, LineError::kNone, B115200, CS7 | PARENB | CSTOPB, INPCK | ISTRIP},
        {230400, 8, 'o', 1, LineError::kNone, B230400, CS8 | PARENB | PARODD, INPCK | ISTRIP},
        {2048, 8, 'N', 1, LineError::kNone, B9600, CS8, 0},
        {460800, 6, 'n', 1, LineError::kDataSize, 0, 0, 0},
        {460800, 8, 'x', 1, LineError::kParity, 0, 0, 0},
        {460800, 8, 'n', 3, LineError::kStopBits, 0, 0, 0},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(testing::Message() << r.baud << " " << r.bits << r.parity << r.stop);
        termios t, before;
        memset(&t, 0x5a, sizeof t);
        before = t;
        ASSERT_EQ(r.err, atcmd::make_line_settings(r.baud, r.bits, r.parity, r.stop, &t));
        if (r.err != LineError::kNone) {
            EXPECT_EQ(0, memcmp(&before, &t, sizeof t));
            continue;
        }
        EXPECT_EQ(r.speed, cfgetispeed(&t));
        EXPECT_EQ(r.speed, cfgetospeed(&t));
        EXPECT_EQ(CLOCAL | CREAD | r.cflag, t.c_cflag & ~CBAUD);
        EXPECT_EQ(r.iflag, t.c_iflag);
        EXPECT_EQ(0u, t.c_oflag | t.c_lflag);
        EXPECT_EQ(1, t.c_cc[VTIME]);
        EXPECT_EQ(1, t.c_cc[VMIN]);
    }
}

struct Init : ::testing::Test {
    atcmd_test::TempSysroot root;
    int fd = -1;
};

TEST_F(Init, UartOpensBlockingAt460800OrReportsWhy) {
    std::string out = stdout_of([&] { EXPECT_EQ(-1, UART_init(&fd)); });
    EXPECT_EQ(-1, fd);
    EXPECT_THAT(out, HasSubstr("open AMLOGIC UART fails"));

    root.write_file("/dev/ttyS4", "not a terminal");
    out = stdout_of([&] { EXPECT_EQ(-1, UART_init(&fd)); });
    EXPECT_THAT(out, HasSubstr("serial standard input is not a terminal device\n"));
    EXPECT_GE(fd, 0) << "the variable keeps the closed number";
    EXPECT_EQ(-1, fcntl(fd, F_GETFD));
    remove(root.path("/dev/ttyS4").c_str());

    PtyLink pty;
    pty.plug(root, "/dev/ttyS4");
    out = stdout_of([&] { ASSERT_EQ(0, UART_init(&fd)); });
    EXPECT_THAT(out, HasSubstr("Init uart /dev/ttyS4 successfully, uart fd is " + std::to_string(fd)));
    EXPECT_EQ(0, fcntl(fd, F_GETFL) & O_NONBLOCK);
    termios t;
    ASSERT_EQ(0, tcgetattr(fd, &t));
    EXPECT_EQ(B460800, cfgetospeed(&t));
    close(fd);
}

TEST_F(Init, VuartPathFromTheAcmNumber) {
    struct Row {
        int64_t acm;
        const char *node;  // nullptr: not created
        int result;
        const char *log;
    };
    const Row rows[] = {
        {0, "/dev/ttyACM0", 0, "Init Vuart /dev/ttyACM0 successfully, Vuart fd is "},
        {9999, "/dev/ttyACM9999", 0, "serial open successfully, vuart fd is "},
        {3, nullptr, -1, "open serial /dev/ttyACM3 fails, error num is -1, error num is No such file"},
        {10000, "/dev/ttyACM10000", -1, "ttyACM number 10000 does not fit the device path"},
        {-1, nullptr, -1, "ttyACM number -1 does not fit the device path"},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.acm);
        PtyLink pty;
        if (r.node != nullptr) pty.plug(root, r.node);
        fd = -1;
        std::string tagged;
        std::string out = stdout_of([&] {
            tagged = atcmd_test::stderr_of([&] { EXPECT_EQ(r.result, VUART_init(&fd, r.acm)); });
        });
        EXPECT_THAT(out, HasSubstr(r.log));
        EXPECT_THAT(tagged, HasSubstr("ATCMD_VUART ")) << "the virtual UART's own tag";
        EXPECT_EQ(r.result == 0, fd >= 0 && isatty(fd));
        if (fd >= 0) close(fd);
    }
}

TEST(SerialIo, BytesPassUnchangedTimeOutsAreMillisecondsShortWritesFail) {
    PtyLink pty;
    const std::string frame = "AT+VER?#11&1\r\n";
    EXPECT_EQ(14, VUART_Send(pty.slave_fd(), frame.c_str(), 14));
    EXPECT_EQ(frame, pty.take_output());

    char buf[16] = {};
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(-1, UART_Recv(pty.slave_fd(), buf, sizeof buf, 300));
    EXPECT_GE(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(300));

    // -1 waits as long as it takes.
    std::thread writer([&] {
        usleep(200 * 1000);
        pty.send("+OK\r\n");
    });
    EXPECT_EQ(5, VUART_Recv(pty.slave_fd(), buf, sizeof buf, -1));
    EXPECT_STREQ("+OK\r\n", buf);
    writer.join();
    EXPECT_EQ(-1, UART_Recv(-1, buf, sizeof buf, -1)) << "nothing to wait on";

    // One write, no retry: a non-blocking pipe takes 64 KiB, so this comes
    // back short and counts as failed.
    int p[2];
    ASSERT_EQ(0, pipe2(p, O_NONBLOCK));
    std::string big(70000, 'x');
    std::string out = stdout_of([&] { EXPECT_EQ(-1, VUART_Send(p[1], big.c_str(), 70000)); });
    EXPECT_THAT(out, HasSubstr("serial write device error\n"));
    EXPECT_THAT(out, ::testing::Not(HasSubstr("serial send data is")));
    close(p[0]);
    close(p[1]);
}

}  // namespace
