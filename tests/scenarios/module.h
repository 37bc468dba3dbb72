// The module as its client has it: atcmdprocess.default.so loaded the way
// the platform's loader loads it (client/loader.h), the device opened, the
// callback installed, and the accessory side played by the simulator under a
// private ATCMD_SYSROOT.
#ifndef ATCMD_TESTS_SCENARIOS_MODULE_H
#define ATCMD_TESTS_SCENARIOS_MODULE_H

#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "atcmdprocess.h"
#include "client/loader.h"
#include "fixtures/callback_sink.h"
#include "sim/sim.h"

namespace scenario {

using namespace std::chrono_literals;
using Texts = std::vector<std::string>;

// The module's long waits (core/delays.h) in every scenario, handed to it
// through the host's ATCMD_DELAYS before the open. Each stays well above what
// it races with, so that a scenario means what it means with the shipped
// waits: the heartbeat period above five of the daemon's beats (Daemon), the
// exit acknowledgement above the daemon's 20 ms command poll, the pauses
// above a thread's turn. A scenario that must see a shipped wait does not
// pass them to its Module.
struct Waits {
    std::chrono::milliseconds heartbeat_period, daemon_exit_ack, uart_retry_pause,
        vuart_recheck_pause;
};
inline constexpr Waits kWaits = {800ms, 250ms, 200ms, 50ms};
// Five beats a period, the simulator's default second against the shipped 5 s.
inline constexpr std::chrono::milliseconds kDaemonBeat = kWaits.heartbeat_period / 5;
// What a busy shared machine may add to anything a scenario waits for. Only
// a failing scenario sits it out.
inline constexpr std::chrono::milliseconds kSlack = 5s;
inline int ms(std::chrono::milliseconds d) { return static_cast<int>(d.count()); }

class Module {
public:
    // Loads the library; does not open the device yet, so that a scenario
    // can place nodes first. The open then applies waits, when given.
    explicit Module(const std::string &sysroot, std::optional<Waits> waits = std::nullopt);

    // The device's open and the callback, as a client does right after it.
    atcmdprocess_device_t *open();
    atcmdprocess_device_t *device() { return loader_.device(); }
    // The status as a client reads it while the service's threads write it:
    // every int field once, as a relaxed atomic load, as the service itself
    // reads them.
    system_status_t status() const { return status_of(loader_.device()); }
    static system_status_t status_of(const atcmdprocess_device_t *dev);
    // A client's change of platform while the service runs.
    void set_platform(int32_t platform);

    // An exported name, as a client reaches it.
    template <typename T>
    T *sym(const char *name) {
        return loader_.sym<T>(name);
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
    // messages are "name/seq_num:payload" (CallbackSink::described).
    bool wait_told(const std::string &described, std::chrono::milliseconds timeout = 5s);
    Texts told() { return atcmd_test::CallbackSink::described(); }

private:
    const std::string area_;  // the sysroot's property store
    atcmd_client::Module loader_;
};

// The HID daemon of a scenario, beating at kDaemonBeat.
class Daemon : public atsim::HidDaemon {
public:
    Daemon(Module &m, const std::string &sysroot, atsim::Transcript &t)
        : HidDaemon(sysroot, m.properties(), t) {
        set_heartbeat_period(kDaemonBeat);
    }
};

// The query burst the phone sends a new accessory, in order, as the
// accessory receives it. mac: the phone's Bluetooth address property.
Texts query_burst(int platform, const std::string &mac);

}  // namespace scenario

#endif
