// The device object that open installs, as every layer below hal/ sees it:
// its system status and its channel back to the client. Threads of the
// service can run before open has installed a device (in tests, and in a
// process that drives the protocol alone), so every read goes through here
// and copes with there being none.
#ifndef ATCMD_CORE_DEVICE_STATE_H
#define ATCMD_CORE_DEVICE_STATE_H

#include "atcmdprocess.h"

extern "C" {

/* The device the module's open installed (install_device below). */
ATCMD_API extern atcmdprocess_device_t *g_patcmd_dev;

/* Tells the client the USB link's state: an ATCMD_ID_USBSTATE message with
 * usb_connected and usb_devinfo. */
ATCMD_API void notify_usbevent(void);
}

namespace atcmd {

// Installs dev as g_patcmd_dev (the module's open does; a second open
// replaces the first device for every thread).
void install_device(atcmdprocess_device_t *dev);

// The installed device's status, or nullptr when there is none. Its fields
// are plain ints shared without a lock: the signal thread and the client's
// calls write them, everyone reads them, each access through relaxed.h.
system_status_t *device_status();

// platform without a device reads 0, which selects no link and no role.
int32_t current_platform();
// wifi_status without a device reads -1: the WiFi link was never requested.
int32_t current_wifi_status();

struct LinkStatus {
    int32_t platform;
    int32_t mode;
};

// False when no device is installed; out is then left alone.
bool read_link_status(LinkStatus *out);

// Hands msg to the client's callback, on the caller's thread. A client that
// has not installed one (or no device yet) must not bring the service down:
// the message is dropped with a log line instead.
void notify_client(AT_CMD_CbMsg_t *msg);

}  // namespace atcmd

#endif
