#include "scenarios/module.h"

#include <cutils/properties.h>

#include <algorithm>

#include "harness/wait_until.h"
#include "platform/property_store.h"

namespace scenario {

Module::Module(const std::string &sysroot, std::optional<Waits> waits)
    : area_(sysroot + atcmd::kRootPropertyArea) {
    setenv("ATCMD_SYSROOT", sysroot.c_str(), 1);
    auto us = [](std::chrono::milliseconds d) {
        return std::to_string(std::chrono::microseconds(d).count());
    };
    if (waits)
        setenv("ATCMD_DELAYS",
               ("heartbeat_period=" + us(waits->heartbeat_period) +
                ",daemon_exit_ack=" + us(waits->daemon_exit_ack) +
                ",uart_retry_pause=" + us(waits->uart_retry_pause) +
                ",vuart_recheck_pause=" + us(waits->vuart_recheck_pause)).c_str(),
               1);
    std::string error;
    if (!loader_.load_path(ATCMD_MODULE_PATH, &error)) {
        ADD_FAILURE() << error;
        return;
    }
    atcmd_test::CallbackSink::name_rows(sym<const at_cmd_t>("AT_CMDS"));
    atcmd_test::CallbackSink::clear();
}

atcmdprocess_device_t *Module::open() {
    std::string error;
    atcmdprocess_device_t *dev = loader_.open(&error);
    if (dev != nullptr) dev->set_notify_callback(dev, &atcmd_test::CallbackSink::callback);
    return dev;
}

system_status_t Module::status_of(const atcmdprocess_device_t *dev) {
    const system_status_t &s = dev->system_status;
    auto load = [](const int32_t &field) { return __atomic_load_n(&field, __ATOMIC_RELAXED); };
    system_status_t copy = {load(s.platform), load(s.mode), load(s.wifi_status), load(s.state), {},
                            {load(s.usbdev_sts.usb_devinfo), load(s.usbdev_sts.usb_connected)}};
    memcpy(copy.ipaddr, s.ipaddr, sizeof copy.ipaddr);  // written by the client's wifi_init only
    return copy;
}

void Module::set_platform(int32_t platform) {
    __atomic_store_n(&device()->system_status.platform, platform, __ATOMIC_RELAXED);
}

atsim::PropertyStore Module::properties() {
    return {sym<int(const char *, char *, const char *)>("property_get"),
            sym<int(const char *, const char *)>("property_set"), area_};
}

std::string Module::prop(const char *key) {
    char v[PROPERTY_VALUE_MAX];
    properties().get(key, v, "");
    return v;
}

void Module::set_prop(const char *key, const char *value) { properties().set(key, value); }

bool Module::wait_told(const std::string &described, std::chrono::milliseconds timeout) {
    return atcmd_harness::wait_until(
        [&] {
            Texts t = told();
            return std::find(t.begin(), t.end(), described) != t.end();
        },
        static_cast<int>(timeout.count()));
}

Texts query_burst(int platform, const std::string &mac) {
    const std::string tail = platform == 1 ? "&1\r\n" : "&2\r\n";
    Texts burst = {"AT+TYPE?#15" + tail, "AT+BAT?#9" + tail,
                   platform == 1 ? "AT+BTMAC=" + mac + "#7&1\r\n" : "AT+BLEMAC=" + mac + "#8&2\r\n",
                   "AT+SN?#13" + tail, "AT+SID?#14" + tail, "AT+SCREEN?#17" + tail};
    if (platform == 1)
        for (const char *q : {"AT+STATE?#10", "AT+USBSTATE?#16", "AT+BLEMAC?#8"}) burst.push_back(q + tail);
    burst.push_back("AT+MICMODE?#19" + tail);
    burst.push_back("AT+VER?#11" + tail);
    return burst;
}

}  // namespace scenario
