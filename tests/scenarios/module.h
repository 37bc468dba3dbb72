// The module as its client has it: atcmdprocess.default.so loaded the way
// the platform's loader loads it (dlopen with RTLD_NOW, the "HMI" symbol, the
// id check, dso stored), the device opened, the callback installed, and the
// accessory side played by the simulator under a private ATCMD_SYSROOT.
#ifndef ATCMD_TESTS_SCENARIOS_MODULE_H
#define ATCMD_TESTS_SCENARIOS_MODULE_H

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "atcmdprocess.h"
#include "fixtures/callback_sink.h"
#include "sim/sim.h"

namespace scenario {

using namespace std::chrono_literals;
using Texts = std::vector<std::string>;

class Module {
public:
    // Loads the library; does not open the device yet, so that a scenario
    // can place nodes first.
    explicit Module(const std::string &sysroot);

    // The device's open and the callback, as a client does right after it.
    atcmdprocess_device_t *open();
    atcmdprocess_device_t *device() { return dev_; }
    // The status as a client reads it while the service's threads write it:
    // every int field once, as a relaxed atomic load, as the service itself
    // reads them.
    system_status_t status() const { return status_of(dev_); }
    static system_status_t status_of(const atcmdprocess_device_t *dev);
    // A client's change of platform while the service runs.
    void set_platform(int32_t platform);

    // An exported name, as a client reaches it.
    template <typename T>
    T *sym(const char *name) {
        return reinterpret_cast<T *>(dlsym(handle_, name));
    }
    // An exported variable that the service's threads write, read as they
    // read it: one relaxed atomic load.
    template <typename T>
    T load(const char *name) {
        return __atomic_load_n(sym<T>(name), __ATOMIC_RELAXED);
    }
    atsim::PropertyStore properties();
    std::string prop(const char *key);
    void set_prop(const char *key, const char *value);

    // Waits until the client was told something that matches; the
    // messages are "cmd_id/seq_num:payload" (CapturedMsg::describe).
    bool wait_told(const std::string &described, std::chrono::milliseconds timeout = 5s);
    Texts told() { return atcmd_test::CallbackSink::described(); }

private:
    const std::string area_;  // the sysroot's property store
    void *handle_ = nullptr;
    hw_module_t *hmi_ = nullptr;
    atcmdprocess_device_t *dev_ = nullptr;
};

// The query burst the phone sends a new accessory, in order, as the
// accessory receives it. mac: the phone's Bluetooth address property.
Texts query_burst(int platform, const std::string &mac);

}  // namespace scenario

#endif
