// Pins the layouts that clients and the platform's loader compile against.
#include <stddef.h>

#include "atcmdprocess.h"

#ifdef __LP64__
static_assert(sizeof(AtCmder_t) == 32, "AtCmder_t is 32 bytes");
static_assert(offsetof(AtCmder_t, seq_num) == 6, "seq_num after the six byte fields");
static_assert(offsetof(AtCmder_t, tv_sec) == 8, "time stamp at 8");
static_assert(offsetof(AtCmder_t, data) == 24, "data at 24: dequeue copies the 24 bytes before it");
static_assert(sizeof(atcmder_node_t) == 208, "queue node is 208 bytes");
static_assert(offsetof(atcmder_node_t, text) == 32, "text follows the record");
static_assert(offsetof(atcmder_node_t, link) == 192, "links follow the text");
static_assert(sizeof(hw_module_t) == 248, "hw_module_t");
static_assert(offsetof(hw_module_t, dso) == 40, "hw_module_t.dso");
static_assert(sizeof(hw_device_t) == 120, "hw_device_t");
static_assert(offsetof(hw_device_t, close) == 112, "hw_device_t.close");
static_assert(offsetof(atcmdprocess_device_t, common) == 0, "the loader hands out &common");
static_assert(offsetof(atcmdprocess_device_t, system_status) == 120, "status after common");
static_assert(sizeof(system_status_t) == 40, "system_status_t");
static_assert(offsetof(system_status_t, usbdev_sts) == 32, "usbdev_sts last");
static_assert(offsetof(atcmdprocess_device_t, notify_callback) == 160, "callback after status");
static_assert(offsetof(atcmdprocess_device_t, set_notify_callback) == 168, "operations follow");
static_assert(offsetof(atcmdprocess_device_t, reserved) == 216, "reserved after six operations");
static_assert(sizeof(atcmdprocess_device_t) == 248, "device object");
static_assert(sizeof(AT_CMD_CbMsg_t) == 16, "callback message");
#endif
static_assert(sizeof(usbdev_sts_t) == 8, "usbdev_sts_t: devinfo then connected");
static_assert(ATCMD_TEXT_MAX == 160, "every text buffer in the system is 160 bytes");
