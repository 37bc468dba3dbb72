// Watches /dev for the accessory's USB ACM node coming and going. The watcher
// thread ("devEpoll_process") only records the node's name and number in
// g_dev_ACM_name / g_dev_ACM and signals the signal thread: SIGUSR1 for a new
// node, SIGUSR2 for a removed one. That thread checks the node's identity
// (kavren_plugged), opens the virtual UART and starts or ends its receive
// thread. The signal carries the event and the globals its subject; a
// second quick event may overwrite the subject first, so the signal thread
// checks what it is told against the node that exists (vuart_link_state).
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/input.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "atcmdprocess.h"
#include "core/device_state.h"
#include "core/link_fd.h"
#include "core/lock_guard.h"
#include "core/log.h"
#include "core/relaxed.h"
#include "core/threads.h"
#include "link/acm_link.h"
#include "link/serial_port.h"
#include "link/usb_hotplug.h"
#include "platform/sysroot.h"

int64_t g_dev_ACM = -1;
char g_dev_ACM_name[64];
int fd_inotify_input = -1;
int epfd_hid_devs = -1;
pthread_t g_find_acmdev_thread;

using atcmd::kTagHotplug;
using atcmd::kTagManage;
using atcmd::acquire_load;
using atcmd::publish;
using atcmd::relaxed_load;
using atcmd::relaxed_store;

namespace {

constexpr char kAcmPrefix[] = "ttyACM";
constexpr int kMaxEpollEvents = 20;
constexpr size_t kEventBufferSize = 4096;
// The watcher's steps below log as the function that reads the events.
constexpr char kEventFn[] = "dev_event_process";

// The accessory's USB vendor and product ids, lower-case hex, as the kernel
// writes them on the PRODUCT line of a node's uevent.
constexpr char kVendorId[] = "6f2a";
constexpr char kProductId[] = "4c07";

// g_dev_ACM_name and g_dev_ACM are written and read together under this
// lock, so that the signal thread never pairs one node's name with
// another's number. Held only to copy them.
pthread_mutex_t g_node_lock = PTHREAD_MUTEX_INITIALIZER;

int64_t parse_dev_name_locked(const char *name) {
    const char *at = name != nullptr ? strstr(name, kAcmPrefix) : nullptr;
    if (at == nullptr) return -1;
    snprintf(g_dev_ACM_name, sizeof g_dev_ACM_name, "%s", name);
    return strtol(at + strlen(kAcmPrefix), nullptr, 10);
}

// Records name as the node last seen; a node that appeared brings its
// number along. Returns the number, or -1 for a name without "ttyACM".
int64_t note_node(const char *name, bool appeared) {
    atcmd::MutexGuard lock(&g_node_lock);
    const int64_t n = parse_dev_name_locked(name);
    if (n != -1 && appeared) relaxed_store(&g_dev_ACM, n);
    return n;
}

void acm_path(int64_t number, char (&path)[32]) {
    snprintf(path, sizeof path, "/dev/ttyACM%lld", static_cast<long long>(number));
}

void tell_signal_thread(int sig) {
    atcmd::signal_thread(relaxed_load(&g_Sigprocess_thread), sig);
}

void node_created(const char *name, bool is_dir) {
    if (is_dir) {
        ATLOGI_FN(kEventFn, atcmd::kLogDetail, kTagHotplug, "New directory %s created.", name);
        return;
    }
    int64_t n = note_node(name, true);
    if (n == -1) return;
    ATLOGI_FN(kEventFn, atcmd::kLogDetail, kTagHotplug, "New file %s created, dev_ACM is %ld.", name,
              static_cast<long>(n));
    tell_signal_thread(SIGUSR1);
}

// g_dev_ACM keeps the removed node's number.
void node_deleted(const char *name, bool is_dir) {
    if (is_dir) {
        ATLOGI_FN(kEventFn, atcmd::kLogDetail, kTagHotplug, "Directory %s deleted.", name);
        return;
    }
    ATLOGI_FN(kEventFn, atcmd::kLogDetail, kTagHotplug, "File %s deleted.", name);
    if (note_node(name, false) == -1) return;
    tell_signal_thread(SIGUSR2);
    ATLOGI_FN(kEventFn, atcmd::kLogDetail, kTagHotplug,
              "event->name %s unplugged, vuart thread has been killed, g_vuart_fd is %d", name,
              relaxed_load(&g_vuart_fd));
}

}  // namespace

int64_t parse_dev_name(const char *name) {
    atcmd::MutexGuard lock(&g_node_lock);
    return parse_dev_name_locked(name);
}

// Every ACM node present is announced, so with several the last one read
// from the directory is the one g_dev_ACM and g_dev_ACM_name name.
int scan_acm_devices(void) {
    ATLOGI(atcmd::kLogState, kTagHotplug, "scan_acm_devices begin!");
    DIR *dir = opendir(atcmd::SysPath("/dev").c_str());
    if (dir == nullptr) {
        ATLOGE(atcmd::kLogAlways, kTagHotplug, "Could not open directory\n");
        return 0;
    }
    int found = 0;
    while (const dirent *entry = readdir(dir)) {
        int64_t n = note_node(entry->d_name, true);
        if (n == -1) continue;
        ATLOGI(atcmd::kLogDetail, kTagHotplug, "ttyACM %ld is found", static_cast<long>(n));
        tell_signal_thread(SIGUSR1);
        found = 1;
    }
    closedir(dir);
    return found;
}

int inotify_input_event(void) {
    int fd = inotify_init1(IN_CLOEXEC);
    if (fd < 0) {
        int err = errno;
        ATLOGE(atcmd::kLogAlways, kTagHotplug, "inotify_init, errno:%d, errstr:%s\n", err, strerror(err));
        return -1;
    }
    if (inotify_add_watch(fd, atcmd::SysPath("/dev").c_str(), IN_CREATE | IN_DELETE) < 0) {
        int err = errno;
        ATLOGE(atcmd::kLogAlways, kTagHotplug, "inotify_add_watch, errno:%d, errstr:%s\n", err, strerror(err));
        close(fd);
        return -1;
    }
    return fd;
}

// The inotify descriptor and its epoll instance are published only once
// both exist and are never closed after that: the watcher thread waits on
// them for the life of the process. A second open publishes new ones, and
// the first watcher moves to them; the old ones stay open, unused.
int dev_hotplug_init(void) {
    scan_acm_devices();

    const int epfd = epoll_create1(EPOLL_CLOEXEC);
    if (epfd < 0) {
        int err = errno;
        ATLOGE(atcmd::kLogAlways, kTagHotplug, "Create epoll instance, errno:%d, errstr:%s\n", err, strerror(err));
        return -6;
    }
    const int inotify = inotify_input_event();
    if (inotify < 0) {
        ATLOGE(atcmd::kLogAlways, kTagHotplug, "inotify_input_event\n");
        close(epfd);
        return -22;
    }
    // A grab means nothing to an inotify descriptor and fails with ENOTTY;
    // the call is harmless and has always been issued here.
    ioctl(inotify, EVIOCGRAB, 0);

    epoll_event ev;
    memset(&ev, 0, sizeof ev);
    ev.events = EPOLLIN | EPOLLET;
    ev.data.fd = inotify;
    if (epoll_ctl(epfd, EPOLL_CTL_ADD, inotify, &ev) < 0) {
        int err = errno;
        ATLOGE(atcmd::kLogAlways, kTagHotplug, "Set epoll_ctl, errno:%d, errstr:%s\n", err, strerror(err));
    }
    publish(&fd_inotify_input, inotify);
    publish(&epfd_hid_devs, epfd);

    if (pthread_create(&g_find_acmdev_thread, nullptr, handler_acm_devs_epoll, nullptr) != 0) {
        ATLOGE(atcmd::kLogAlways, kTagHotplug, "pthread_create error\n");
        return -4;
    }
    return 0;
}

// The watcher thread; it runs for the life of the process.
void *handler_acm_devs_epoll(void *) {
    prctl(PR_SET_NAME, "devEpoll_process");  // the kernel keeps 15 characters of it
    ATLOGI(atcmd::kLogState, kTagHotplug, "handler_acm_devs_epoll thread is running");
    epoll_event events[kMaxEpollEvents];
    for (;;) {
        int n = epoll_wait(acquire_load(&epfd_hid_devs), events, kMaxEpollEvents, -1);
        for (int i = 0; i < n; ++i)
            if (events[i].data.fd == acquire_load(&fd_inotify_input)) dev_event_process();
    }
    return nullptr;
}

// Runs on the watcher thread: one read, then every whole record in it.
int dev_event_process(void) {
    alignas(inotify_event) char buf[kEventBufferSize];
    ssize_t n = read(acquire_load(&fd_inotify_input), buf, sizeof buf);
    if (n < 0) {
        int err = errno;
        ATLOGE(atcmd::kLogAlways, kTagHotplug, "read, errno:%d, errstr:%s", err, strerror(err));
        return -1;
    }
    size_t end = static_cast<size_t>(n);
    for (size_t off = 0; off + sizeof(inotify_event) <= end;) {
        const auto *ev = reinterpret_cast<const inotify_event *>(buf + off);
        off += sizeof(inotify_event) + ev->len;
        if (off > end) break;
        if (ev->len == 0 || ev->name[0] == '\0') continue;
        bool is_dir = (ev->mask & IN_ISDIR) != 0;
        if (ev->mask & IN_CREATE)
            node_created(ev->name, is_dir);
        else if (ev->mask & IN_DELETE)
            node_deleted(ev->name, is_dir);
    }
    return 0;
}

// The node last seen; the signal thread asks kavren_node_plugged about the
// name of the snapshot it works on.
int kavren_plugged(void) { return atcmd::kavren_node_plugged(atcmd::acm_node_snapshot().name); }

namespace atcmd {

AcmNode acm_node_snapshot() {
    AcmNode node;
    MutexGuard lock(&g_node_lock);
    memcpy(node.name, g_dev_ACM_name, sizeof node.name);
    node.name[sizeof node.name - 1] = '\0';
    node.number = relaxed_load(&g_dev_ACM);
    return node;
}

namespace {

// The uevent text of the node called name; false when it cannot be read.
bool read_uevent(const char *name, char (&path)[128], char (&text)[1024]) {
    snprintf(path, sizeof path, "/sys/class/tty/%s/device/uevent", name);
    int fd = open(SysPath(path).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    ssize_t n = read(fd, text, sizeof text - 1);
    text[n > 0 ? n : 0] = '\0';
    close(fd);
    return true;
}

void accessory_match(char (&match)[32]) {
    snprintf(match, sizeof match, "PRODUCT=%s/%s", kVendorId, kProductId);
}

}  // namespace

// A node whose name merely contains "ttyACM" is the accessory only if its
// uevent names our USB ids. Logs as kavren_plugged, the check's name in the
// field logs.
int kavren_node_plugged(const char *name) {
    constexpr char kFn[] = "kavren_plugged";
    char path[128], text[1024], match[32];
    const bool readable = read_uevent(name, path, text);
    ATLOGI_FN(kFn, atcmd::kLogDetail, kTagManage, "ttyACM node name:%s", path);
    if (!readable) {
        ATLOGE_FN(kFn, atcmd::kLogAlways, kTagManage, "open node fail.");
        return 0;
    }
    ATLOGI_FN(kFn, atcmd::kLogDetail, kTagManage, "buf_read %s", text);
    accessory_match(match);
    ATLOGI_FN(kFn, atcmd::kLogDetail, kTagManage, "buf_match %s", match);
    return strstr(text, match) != nullptr ? 1 : 0;
}

bool find_accessory_node(AcmNode *out) {
    DIR *dir = opendir(SysPath("/dev").c_str());
    if (dir == nullptr) return false;
    char path[128], text[1024], match[32];
    accessory_match(match);
    bool found = false;
    while (const dirent *entry = readdir(dir)) {
        if (strncmp(entry->d_name, kAcmPrefix, strlen(kAcmPrefix)) != 0) continue;
        if (!read_uevent(entry->d_name, path, text) || strstr(text, match) == nullptr) continue;
        snprintf(out->name, sizeof out->name, "%.63s", entry->d_name);
        out->number = strtol(entry->d_name + strlen(kAcmPrefix), nullptr, 10);
        found = true;
        break;
    }
    closedir(dir);
    return found;
}

// A USB tty that goes away hangs up under its open descriptors, and one
// plugged back under the same name is a new device number: either tells a
// dead link from a live one, whichever the kernel (or a pseudo-terminal in
// its place) shows first.
VuartLink vuart_link_state(int64_t number) {
    const int fd = fd_dup(&g_vuart_fd);
    if (fd < 0) return VuartLink::kClosed;
    char path[32];
    acm_path(number, path);
    struct stat node, open_tty;
    const bool same = stat(SysPath(path).c_str(), &node) == 0 && fstat(fd, &open_tty) == 0 &&
                      S_ISCHR(node.st_mode) && node.st_rdev == open_tty.st_rdev;
    pollfd p = {fd, POLLIN, 0};
    const bool hung_up = poll(&p, 1, 0) > 0 && (p.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
    close(fd);
    return same && !hung_up ? VuartLink::kAlive : VuartLink::kDead;
}

}  // namespace atcmd
