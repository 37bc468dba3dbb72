// Pins the layouts that clients and the platform's loader compile against,
// for both libraries an Android build makes: LP64 (arm64) and 32-bit ARM
// (EABI, where int64_t is 8-byte aligned inside structures). The test
// command compiles this file for 32-bit ARM too.
#include <stddef.h>

#include "atcmdprocess.h"
#include "core/queue.h"

#ifdef __LP64__
#define LP64_OR_ARM32(lp64, arm32) (lp64)
#else
#define LP64_OR_ARM32(lp64, arm32) (arm32)
#endif

static_assert(sizeof(AtCmder_t) == 32, "AtCmder_t is 32 bytes (padded after data on ARM32)");
static_assert(offsetof(AtCmder_t, seq_num) == 6, "seq_num after the six byte fields");
static_assert(offsetof(AtCmder_t, tv_sec) == 8, "time stamp at 8");
static_assert(offsetof(AtCmder_t, data) == 24, "data at 24: dequeue copies the 24 bytes before it");
static_assert(sizeof(atcmder_node_t) == LP64_OR_ARM32(208, 200), "queue node");
static_assert(offsetof(atcmder_node_t, text) == 32, "text follows the record");
static_assert(offsetof(atcmder_node_t, link) == 192, "links follow the text");
static_assert(sizeof(hw_module_t) == LP64_OR_ARM32(248, 128), "hw_module_t");
static_assert(offsetof(hw_module_t, dso) == LP64_OR_ARM32(40, 24), "hw_module_t.dso");
static_assert(sizeof(hw_device_t) == LP64_OR_ARM32(120, 64), "hw_device_t");
static_assert(offsetof(hw_device_t, close) == LP64_OR_ARM32(112, 60), "hw_device_t.close");
static_assert(offsetof(atcmdprocess_device_t, common) == 0, "the loader hands out &common");
static_assert(offsetof(atcmdprocess_device_t, system_status) == LP64_OR_ARM32(120, 64),
              "status after common");
static_assert(sizeof(system_status_t) == 40, "system_status_t");
static_assert(offsetof(system_status_t, usbdev_sts) == 32, "usbdev_sts last");
static_assert(offsetof(atcmdprocess_device_t, notify_callback) == LP64_OR_ARM32(160, 104),
              "callback after status");
static_assert(offsetof(atcmdprocess_device_t, set_notify_callback) == LP64_OR_ARM32(168, 108),
              "operations follow");
static_assert(offsetof(atcmdprocess_device_t, reserved) == LP64_OR_ARM32(216, 136),
              "reserved, 8-aligned, after six operations");
static_assert(sizeof(atcmdprocess_device_t) == LP64_OR_ARM32(248, 168), "device object");
static_assert(sizeof(AT_CMD_CbMsg_t) == LP64_OR_ARM32(16, 8), "callback message");
static_assert(sizeof(kavren_devInfo_t) == 388, "accessory record");
static_assert(offsetof(kavren_devInfo_t, type) == 64 && offsetof(kavren_devInfo_t, ver_item0) == 96,
              "three 32-byte texts, then the version block");
static_assert(offsetof(kavren_devInfo_t, ver_item3) == 192 &&
                  offsetof(kavren_devInfo_t, ver_item4) == 256 &&
                  offsetof(kavren_devInfo_t, ver_item6) == 320,
              "the 64-byte fourth item inside the 256-byte version block");
static_assert(offsetof(kavren_devInfo_t, mac) == 352 && offsetof(kavren_devInfo_t, model) == 384,
              "mac and model after the version block");
static_assert(sizeof(usbdev_sts_t) == 8, "usbdev_sts_t: devinfo then connected");
static_assert(ATCMD_TEXT_MAX == 160, "every text buffer in the system is 160 bytes");

#undef LP64_OR_ARM32
