// Every case runs under a temporary root of its own, so that nothing a test
// does can reach a real device node or the real /sdcard, and finds the
// module's globals as the process started with them: no case sees what an
// earlier one left (a property, ro.* ones being write-once; the log stream; a
// queued record; a descriptor number), whether each case has a process of its
// own (CTest) or the whole binary is one (Android's host test runner).
#include <gtest/gtest.h>
#include <string.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "atcmdprocess.h"
#include "core/delays.h"
#include "core/device_state.h"
#include "core/log.h"
#include "core/queue.h"
#include "core/threads.h"
#include "device/factory.h"
#include "device/reports.h"
#include "fixtures/callback_sink.h"
#include "hal/wiring.h"
#include "harness/census.h"
#include "harness/sysroot.h"
#include "harness/wait_until.h"
#include "link/acm_link.h"
#include "link/hiddemon.h"
#include "link/serial_port.h"
#include "link/uart_link.h"
#include "link/usb_hotplug.h"
#include "link/wifi_link.h"
#include "protocol/accessory_info.h"
#include "protocol/timeout.h"

namespace {

using Bytes = std::vector<std::pair<void *, std::string>>;

template <typename... T>
Bytes bytes_of(T &...var) {
    return {{&var, std::string(reinterpret_cast<const char *>(&var), sizeof var)}...};
}

class FreshModulePerCase : public ::testing::EmptyTestEventListener {
    // Descriptor numbers are put back, not closed: a case owns what it
    // opened, and a number it closed may be someone else's by now.
    const Bytes start_ = bytes_of(
        log_level, ts_base_sec, atcmd::g_delays, g_timeout, g_patcmd_dev, g_kavren_devInfo,
        type_with_wifi, type_without_wifi, bt_mac_prop, g_uart_fd, g_vuart_fd, g_fifo_rx_fd,
        g_fifo_tx_fd, epfd_socket, g_wifiHBeat_num, g_dev_ACM_name, fd_inotify_input,
        epfd_hid_devs, g_Sigprocess_thread, g_uartRx_thread, g_VuartRx_thread, g_Tx_thread,
        g_dispatch_thread, g_timeout_thread, g_wifiRx_thread, g_wifiHBeat_thread,
        g_find_acmdev_thread, g_TestTx_thread);
    std::unique_ptr<atcmd_harness::TempSysroot> root_;
    int threads_ = 0;

public:
    // ThreadSanitizer starts a thread of its own with the process's first
    // one: started now, it is in every case's count.
    FreshModulePerCase() { std::thread([] {}).join(); }
    void OnTestStart(const ::testing::TestInfo &) override {
        unsetenv("ATCMD_PROPERTY_DIR");  // a store named elsewhere, shared by every case
        root_ = std::make_unique<atcmd_harness::TempSysroot>();
        threads_ = atcmd_harness::thread_count();
    }
    void OnTestEnd(const ::testing::TestInfo &) override {
        // A thread left running would also be forked into every later
        // case's child, where ThreadSanitizer stops checking.
        EXPECT_TRUE(atcmd_harness::wait_until([&] { return atcmd_harness::thread_count() == threads_; }))
            << "a thread outlived its case";
        if (fd_logfile != nullptr) fclose(fd_logfile);
        fd_logfile = nullptr;
        atcmder_queue_exit(&Rx_head, &g_rxqueue_mutex);
        atcmder_queue_exit(&Tx_head, &g_txqueue_mutex);
        atcmder_queue_exit(&Timeout_head, &g_timeoutqueue_mutex);
        for (const auto &v : start_) memcpy(v.first, v.second.data(), v.second.size());
        atcmd_test::CallbackSink::clear();
        root_.reset();
    }
};

}  // namespace

int main(int argc, char **argv) {
    // A death test's child re-runs this binary for one case and dies in it:
    // it works in the root of the case that started it.
    bool death_child = false;
    for (int i = 1; i < argc; ++i)
        death_child |= std::string(argv[i]).find("internal_run_death_test") != std::string::npos;
    ::testing::InitGoogleTest(&argc, argv);
    // Death tests re-run the binary rather than fork a process with threads.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // The waits keep their order and their roles, on a scale the suite need
    // not sit through; a test that measures one reads it from g_delays.
    atcmd::g_delays.heartbeat_period = 400 * 1000;
    atcmd::g_delays.daemon_exit_ack = 200 * 1000;
    atcmd::g_delays.uart_retry_pause = 200 * 1000;
    atcmd::g_delays.vuart_recheck_pause = 20 * 1000;
    atcmd_test::CallbackSink::name_rows(AT_CMDS);  // the module is linked in
    // Cases drive the layers without opening the module: start-up's wiring
    // of the calls upward is done here once.
    atcmd::wire_layers();
    auto &listeners = ::testing::UnitTest::GetInstance()->listeners();
    if (!death_child) listeners.Append(new FreshModulePerCase);
    return RUN_ALL_TESTS();
}
