#include "link/serial_port.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <fcntl.h>
#include <poll.h>
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
using ::testing::Not;
using atcmd::LineError;
using atcmd_test::PtyLink;
using atcmd_test::stderr_of;
using atcmd_test::stdout_of;

struct LineRow {
    int baud, bits;
    char parity;
    int stop;
    LineError err;
    speed_t speed;
    tcflag_t cflag;  // besides CLOCAL | CREAD and the speed
    tcflag_t iflag;
};

TEST(LineSettings, FrameParityStopBitsAndRateTable) {
    const LineRow rows[] = {
        {460800, 8, 'n', 1, LineError::kNone, B460800, CS8, 0},
        {2400, 8, 'N', 1, LineError::kNone, B2400, CS8, 0},
        {115200, 7, 'E', 2, LineError::kNone, B115200, CS7 | PARENB | CSTOPB, INPCK | ISTRIP},
        {9600, 7, 'e', 1, LineError::kNone, B9600, CS7 | PARENB, INPCK | ISTRIP},
        {230400, 8, 'o', 1, LineError::kNone, B230400, CS8 | PARENB | PARODD, INPCK | ISTRIP},
        {2048, 8, 'n', 1, LineError::kNone, B9600, CS8, 0},  // unknown rate: 9600
        {460800, 6, 'n', 1, LineError::kDataSize, 0, 0, 0},
        {460800, 8, 'x', 1, LineError::kParity, 0, 0, 0},
        {460800, 8, 'n', 3, LineError::kStopBits, 0, 0, 0},
    };
    for (const LineRow &r : rows) {
        SCOPED_TRACE(testing::Message() << r.baud << " " << r.bits << r.parity << r.stop);
        termios t;
        memset(&t, 0x5a, sizeof t);
        termios before = t;
        ASSERT_EQ(r.err, atcmd::make_line_settings(r.baud, r.bits, r.parity, r.stop, &t));
        if (r.err != LineError::kNone) {
            EXPECT_EQ(0, memcmp(&before, &t, sizeof t)) << "refused settings must not be touched";
            continue;
        }
        EXPECT_EQ(r.speed, cfgetispeed(&t));
        EXPECT_EQ(r.speed, cfgetospeed(&t));
        EXPECT_EQ(CLOCAL | CREAD | r.cflag, t.c_cflag & ~CBAUD & ~CBAUDEX);
        EXPECT_EQ(r.iflag, t.c_iflag);
        EXPECT_EQ(0u, t.c_oflag);
        EXPECT_EQ(0u, t.c_lflag);
        EXPECT_EQ(1, t.c_cc[VTIME]);
        EXPECT_EQ(1, t.c_cc[VMIN]);
    }
    EXPECT_TRUE(atcmd::baud_is_known(460800));
    EXPECT_FALSE(atcmd::baud_is_known(2048));
}

TEST(SerialSetOpt, AppliesTheLineOrReportsWhyNot) {
    PtyLink pty;
    int fd = pty.slave_fd();
    std::string out = stdout_of([&] { EXPECT_EQ(0, UART_setOpt(fd, 2048, 8, 'n', 1)); });
    EXPECT_THAT(out, HasSubstr("serial Sorry, Unsupported baud rate, set default 9600!"));
    EXPECT_THAT(out, HasSubstr("Serial set done!"));
    termios t;
    ASSERT_EQ(0, tcgetattr(fd, &t));
    EXPECT_EQ(B9600, cfgetospeed(&t));

    out = stdout_of([&] { EXPECT_EQ(-1, UART_setOpt(fd, 460800, 8, 'x', 1)); });
    EXPECT_THAT(out, HasSubstr("serial Unsupported parity\n"));
    EXPECT_THAT(out, Not(HasSubstr("Serial set done!")));
    ASSERT_EQ(0, tcgetattr(fd, &t));
    EXPECT_EQ(B9600, cfgetospeed(&t)) << "a refused set-up leaves the line as it was";

    // The virtual UART's twin differs only in its tag.
    std::string tagged = stderr_of([&] { EXPECT_EQ(-1, VUART_setOpt(fd, 460800, 8, 'n', 3)); });
    EXPECT_THAT(tagged, HasSubstr("ATCMD_VUART I"));
    EXPECT_THAT(tagged, HasSubstr("serial Unsupported stop bits\n"));

    int pipefd[2];
    ASSERT_EQ(0, pipe(pipefd));
    tagged = stderr_of([&] { EXPECT_EQ(-1, UART_setOpt(pipefd[0], 460800, 8, 'n', 1)); });
    EXPECT_THAT(tagged, HasSubstr("ATCMD_UART E"));
    EXPECT_THAT(tagged, HasSubstr("serial SetupSerial 1"));
    close(pipefd[0]);
    close(pipefd[1]);
}

struct Init : ::testing::Test {
    atcmd_test::TempSysroot root;
    int fd = -2;
    void TearDown() override {
        if (fd >= 0) close(fd);
    }
};

TEST_F(Init, UartOpensTheNodeBlockingAt460800) {
    PtyLink pty;
    pty.plug(root, "/dev/ttyS4");
    std::string out = stdout_of([&] { ASSERT_EQ(0, UART_init(&fd)); });
    EXPECT_THAT(out, HasSubstr("serial open success!"));
    EXPECT_THAT(out, HasSubstr("Init uart /dev/ttyS4 successfully, uart fd is " +
                               std::to_string(fd) + " "));
    EXPECT_EQ(0, fcntl(fd, F_GETFL) & O_NONBLOCK);
    termios t;
    ASSERT_EQ(0, tcgetattr(fd, &t));
    EXPECT_EQ(B460800, cfgetospeed(&t));
    EXPECT_EQ(0u, t.c_lflag & (ICANON | ECHO));
}

TEST_F(Init, UartFailures) {
    std::string out = stdout_of([&] { EXPECT_EQ(-1, UART_init(&fd)); });
    EXPECT_EQ(-1, fd);
    EXPECT_THAT(out, HasSubstr("open AMLOGIC UART fails"));

    root.write_file("/dev/ttyS4", "not a terminal");
    out = stdout_of([&] { EXPECT_EQ(-1, UART_init(&fd)); });
    EXPECT_THAT(out, HasSubstr("serial standard input is not a terminal device\n"));
    EXPECT_GE(fd, 0) << "the caller's variable keeps the closed number";
    EXPECT_EQ(-1, fcntl(fd, F_GETFD)) << "but the descriptor is closed";
    fd = -1;
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
        {3, nullptr, -1,
         "open serial /dev/ttyACM3 fails, error num is -1, error num is No such file or directory"},
        {10000, "/dev/ttyACM10000", -1, "ttyACM number 10000 does not fit the device path"},
        {-1, nullptr, -1, "ttyACM number -1 does not fit the device path"},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.acm);
        PtyLink pty;
        if (r.node != nullptr) pty.plug(root, r.node);
        fd = -1;
        std::string out = stdout_of([&] { EXPECT_EQ(r.result, VUART_init(&fd, r.acm)); });
        EXPECT_THAT(out, HasSubstr(r.log));
        EXPECT_EQ(r.result == 0, fd >= 0 && isatty(fd));
        if (fd >= 0) close(fd);
        fd = -1;
    }
}

TEST(SerialIo, SendAndReceiveBytesUnchanged) {
    PtyLink pty;
    const std::string frame = "AT+VER?#11&1\r\n";
    std::string out = stdout_of([&] {
        EXPECT_EQ(static_cast<int>(frame.size()),
                  VUART_Send(pty.slave_fd(), frame.c_str(), static_cast<int>(frame.size())));
    });
    EXPECT_EQ(frame, pty.take_output());
    EXPECT_THAT(out, HasSubstr("serial send data is " + frame));

    ASSERT_TRUE(pty.send("+VER=1\r\n"));
    char buf[64] = {};
    EXPECT_EQ(8, UART_Recv(pty.slave_fd(), buf, sizeof buf, 1000));
    EXPECT_STREQ("+VER=1\r\n", buf);
}

TEST(SerialIo, ReceiveTimeOutsAndWaitingWithoutLimit) {
    PtyLink pty;
    char buf[16];
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(-1, UART_Recv(pty.slave_fd(), buf, sizeof buf, 1500));
    EXPECT_GE(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(1500));

    // -1 waits for data however long it takes (here: until the writer runs).
    std::thread writer([&] {
        usleep(200 * 1000);
        pty.send("+OK\r\n");
    });
    EXPECT_EQ(5, VUART_Recv(pty.slave_fd(), buf, sizeof buf, -1));
    writer.join();

    // A negative descriptor is not waited on: the read reports it at once.
    EXPECT_EQ(-1, UART_Recv(-1, buf, sizeof buf, -1));
    pty.hang_up();
}

TEST(SerialIo, ReceiveEndsWhenTheDeviceHangsUp) {
    PtyLink pty;
    int fd = open(pty.slave_path().c_str(), O_RDWR | O_NOCTTY);
    ASSERT_GE(fd, 0);
    std::thread unplug([&] {
        usleep(100 * 1000);
        pty.hang_up();
    });
    char buf[16];
    EXPECT_LT(VUART_Recv(fd, buf, sizeof buf, -1), 1);
    unplug.join();
    close(fd);
}

TEST(SerialIo, ShortOrFailedWritesAreErrors) {
    std::string out = stdout_of([] { EXPECT_EQ(-1, UART_Send(-1, "+OK\r\n", 5)); });
    EXPECT_THAT(out, HasSubstr("serial write device error\n"));

    // A non-blocking pipe takes 64 KiB, so this write comes back short.
    int p[2];
    ASSERT_EQ(0, pipe(p));
    fcntl(p[1], F_SETFL, O_NONBLOCK);
    std::string big(70000, 'x');
    out = stdout_of([&] { EXPECT_EQ(-1, VUART_Send(p[1], big.c_str(), static_cast<int>(big.size()))); });
    EXPECT_THAT(out, HasSubstr("serial write device error\n"));
    EXPECT_THAT(out, Not(HasSubstr("serial send data is")));
    close(p[0]);
    close(p[1]);
}

}  // namespace
