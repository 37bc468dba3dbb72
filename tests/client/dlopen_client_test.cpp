// A client that knows only the public header and the library file, loading
// the module the way the platform's loader does: dlopen with RTLD_NOW, look
// up "HMI", check the id, store the handle in dso, call open.
#include <dlfcn.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "atcmdprocess.h"

namespace {

class LoadedModule : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/atcmd-client-XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(tmpl));
        root_ = tmpl;
        setenv("ATCMD_SYSROOT", root_.c_str(), 1);

        handle_ = dlopen(ATCMD_MODULE_PATH, RTLD_NOW);
        ASSERT_NE(nullptr, handle_) << dlerror();
        hmi_ = static_cast<hw_module_t *>(dlsym(handle_, HAL_MODULE_INFO_SYM_AS_STR));
        ASSERT_NE(nullptr, hmi_) << dlerror();
        ASSERT_STREQ(ATCMDPROCESS_HARDWARE_MODULE_ID, hmi_->id);
        hmi_->dso = handle_;
    }
    void TearDown() override {
        std::filesystem::remove_all(root_);
        unsetenv("ATCMD_SYSROOT");
        // The module keeps its globals alive for its threads; it is not unloaded.
    }

    std::string root_;
    void *handle_ = nullptr;
    hw_module_t *hmi_ = nullptr;
};

TEST_F(LoadedModule, OpenHandsOutTheDeviceWithItsStartUpStatus) {
    EXPECT_EQ(static_cast<uint32_t>(HARDWARE_MODULE_TAG), hmi_->tag);
    EXPECT_EQ(0x0100, hmi_->module_api_version);
    EXPECT_EQ(0x0100, hmi_->hal_api_version);
    EXPECT_STREQ("At cmd process HAL", hmi_->name);
    EXPECT_EQ(-22, hmi_->methods->open(hmi_, ATCMDPROCESS_HARDWARE_MODULE_ID, nullptr));

    hw_device_t *common = nullptr;
    ASSERT_EQ(0, hmi_->methods->open(hmi_, ATCMDPROCESS_HARDWARE_MODULE_ID, &common));
    ASSERT_NE(nullptr, common);
    EXPECT_EQ(static_cast<uint32_t>(HARDWARE_DEVICE_TAG), common->tag);
    EXPECT_EQ(0x0100u, common->version);
    EXPECT_EQ(hmi_, common->module);
    EXPECT_NE(nullptr, common->close);

    auto *dev = reinterpret_cast<atcmdprocess_device_t *>(common);
    auto **global = static_cast<atcmdprocess_device_t **>(dlsym(handle_, "g_patcmd_dev"));
    ASSERT_NE(nullptr, global);
    EXPECT_EQ(dev, *global);
    const system_status_t &st = dev->system_status;
    EXPECT_EQ(1, st.platform);
    EXPECT_EQ(-1, st.mode);
    EXPECT_EQ(-1, st.wifi_status);
    EXPECT_EQ(1, st.state);
    EXPECT_EQ(-1, st.usbdev_sts.usb_devinfo);
    EXPECT_EQ(-1, st.usbdev_sts.usb_connected);
    EXPECT_EQ(nullptr, dev->notify_callback);

    EXPECT_TRUE(std::filesystem::exists(root_ + "/sdcard/tavrinola/.log/atcmdprocess"))
        << "open starts the log file under the file-system root";
}

TEST_F(LoadedModule, CommandsFromTheClientLandOnTheTransmitQueue) {
    hw_device_t *common = nullptr;
    ASSERT_EQ(0, hmi_->methods->open(hmi_, ATCMDPROCESS_HARDWARE_MODULE_ID, &common));
    auto *dev = reinterpret_cast<atcmdprocess_device_t *>(common);
    auto *tx = static_cast<atcmder_queue_t *>(dlsym(handle_, "Tx_head"));
    ASSERT_NE(nullptr, tx);

    char text[] = "AT+SN?#13&1\r\n";
    AtCmder_t rec = {};
    rec.type = ATCMD_TYPE_QUERY;
    rec.cmd_id = 13;
    rec.seq_num = 13;
    rec.data = text;
    EXPECT_EQ(0, dev->cmd_from_hidl(&rec));
    rec.data = nullptr;
    EXPECT_EQ(0, dev->cmd_from_hidl(&rec)) << "a refused record is not reported";
    ASSERT_NE(nullptr, tx->tqh_first);
    EXPECT_STREQ(text, tx->tqh_first->text);
    EXPECT_EQ(nullptr, tx->tqh_first->link.tqe_next);
}

TEST_F(LoadedModule, CloseFreesTheDeviceWhenNoServiceThreadRuns) {
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        hw_device_t *common = nullptr;
        if (hmi_->methods->open(hmi_, ATCMDPROCESS_HARDWARE_MODULE_ID, &common) != 0) _exit(2);
        if (common->close(common) != 0) _exit(3);
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(pid, waitpid(pid, &status, 0));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

}  // namespace
