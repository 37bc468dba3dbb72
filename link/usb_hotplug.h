// What the signal thread asks of hot-plug beyond the exported calls: the
// node last seen, as one consistent pair, and whether the open virtual UART
// still talks to the node it was opened on.
#ifndef ATCMD_LINK_USB_HOTPLUG_H
#define ATCMD_LINK_USB_HOTPLUG_H

#include <stdint.h>
#include <pthread.h>
#include "atcmdprocess.h"

extern "C" {

ATCMD_API extern int64_t g_dev_ACM;
ATCMD_API extern char g_dev_ACM_name[64];
ATCMD_API extern int fd_inotify_input;
ATCMD_API extern int epfd_hid_devs;
ATCMD_API extern pthread_t g_find_acmdev_thread;

ATCMD_API int dev_hotplug_init(void);
ATCMD_API int scan_acm_devices(void);
ATCMD_API int inotify_input_event(void);
ATCMD_API void *handler_acm_devs_epoll(void *arg);
ATCMD_API int dev_event_process(void);
ATCMD_API int64_t parse_dev_name(const char *name);
ATCMD_API int kavren_plugged(void);
}

namespace atcmd {

struct AcmNode {
    char name[64];   // as g_dev_ACM_name
    int64_t number;  // as g_dev_ACM
};

// g_dev_ACM_name and g_dev_ACM as the watcher last stored them together.
AcmNode acm_node_snapshot();

// kavren_plugged for the node called name (its log lines are kavren_plugged's).
int kavren_node_plugged(const char *name);

// A ttyACM node under /dev whose uevent names the accessory, whatever the
// watcher saw last (two nodes that came at once leave only one name behind).
// Logs nothing: it runs on every USB signal.
bool find_accessory_node(AcmNode *out);

enum class VuartLink { kClosed, kAlive, kDead };

// g_vuart_fd, judged on a duplicate: alive while /dev/ttyACM<number> is
// still the tty it names and that tty has not hung up.
VuartLink vuart_link_state(int64_t number);

}  // namespace atcmd

#endif
