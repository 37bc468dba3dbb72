#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "atcmdprocess.h"
#include "fixtures/callback_sink.h"
#include "fixtures/device.h"

namespace {

using atcmd_test::CallbackSink;
using ::testing::HasSubstr;

TEST(Notify, TimeoutReportsErrorRowSequenceAndMinus110) {
    atcmd_test::TestDevice dev;
    char text[] = "AT+VER?#11&1\r\n";
    AtCmder_t cmd{};
    cmd.seq_num = 11;
    cmd.data = text;
    ::testing::internal::CaptureStdout();
    notifytimeout(&cmd);
    std::string out = ::testing::internal::GetCapturedStdout();
    EXPECT_THAT(out, HasSubstr("]notifytimeout:"));
    EXPECT_THAT(out, HasSubstr(": Timeout happened, cmd is AT+VER?#11&1\r\n"));
    auto msgs = CallbackSink::messages();
    ASSERT_EQ(1u, msgs.size());
    EXPECT_EQ(24, msgs[0].cmd_id);
    EXPECT_EQ(11, msgs[0].seq_num);
    ASSERT_TRUE(msgs[0].has_data);
    EXPECT_EQ(-110, msgs[0].i32[0]);
}

TEST(Notify, UartNotWorkingReportsMinus6WithoutSequence) {
    atcmd_test::TestDevice dev;
    ::testing::internal::CaptureStdout();
    log_level = 0;
    notifyUartNotWork();
    log_level = 4;
    std::string out = ::testing::internal::GetCapturedStdout();
    EXPECT_THAT(out, HasSubstr("]notifyUartNotWork:"));
    EXPECT_THAT(out, HasSubstr(": uart does not work"));
    auto msgs = CallbackSink::messages();
    ASSERT_EQ(1u, msgs.size());
    EXPECT_EQ(24, msgs[0].cmd_id);
    EXPECT_EQ(0, msgs[0].seq_num);
    EXPECT_EQ(-6, msgs[0].i32[0]);
}

TEST(Notify, MissingCallbackOrDeviceDropsTheMessage) {
    char text[] = "AT+VER?#11&1\r\n";
    AtCmder_t cmd{};
    cmd.seq_num = 11;
    cmd.data = text;
    {
        atcmd_test::TestDevice dev;
        dev.get()->notify_callback = nullptr;
        notifytimeout(&cmd);
        notifyUartNotWork();
    }
    g_patcmd_dev = nullptr;
    notifytimeout(&cmd);
    notifyUartNotWork();
    notifytimeout(nullptr);
    EXPECT_TRUE(CallbackSink::messages().empty());
}

}  // namespace
