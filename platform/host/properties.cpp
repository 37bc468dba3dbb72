// System properties on a host, shared by every process under one file-system
// root: the module, the console, the accessory simulator program, the
// atcmd-getprop/atcmd-setprop tools and a person's shell. Android keeps them
// in an area under /dev/__properties__ that init owns; a host has no init, so
// the store is a directory of that name under ATCMD_SYSROOT with one file per
// key, which any process can read or write without a service to talk to.
// Without a sysroot the module drives a real accessory from a Linux PC, where
// /dev is not ours to write, so the store is a private directory in the
// user's state directory (platform/host/state_dir.h): <state>/properties.
// ATCMD_PROPERTY_DIR, when set and non-empty, names the directory and wins
// over both (for instance to share one store between several sysroots).
//
// A writer fills a temporary file in the same directory and renames it over
// the key's file, so a reader sees the old value or the new one, never part of
// one, with no lock between processes. A ro.* key is published with link(),
// which fails when the name exists, so only the first writer anywhere wins.
//
// property_set says why it refused (platform/property_errors.h); Android's
// says only -1, and nothing in the module looks further than "not 0".
#include "platform/property_store.h"

#include <cutils/properties.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>

#include "platform/host/state_dir.h"
#include "platform/property_errors.h"
#include "platform/sysroot.h"

namespace {

const char *env(const char *name) {
    const char *v = getenv(name);
    return v != nullptr && v[0] != '\0' ? v : nullptr;
}

// *per_user is set for the store in the user's state directory. nullptr with
// errno set when there is no such directory or the path does not fit.
const char *store_dir(char *buf, size_t n, bool *per_user) {
    *per_user = false;
    int len;
    if (const char *dir = env("ATCMD_PROPERTY_DIR")) {
        len = snprintf(buf, n, "%s", dir);
    } else if (const char *root = env("ATCMD_SYSROOT")) {
        atcmd::resolve_path(atcmd::kRootPropertyArea, buf, n);
        len = static_cast<int>(strlen(root) + sizeof atcmd::kRootPropertyArea - 1);
    } else {
        *per_user = true;
        char state[PATH_MAX];
        if (atcmd::user_state_dir(state, sizeof state) == nullptr) return nullptr;
        len = snprintf(buf, n, "%s/properties", state);
    }
    if (len >= 0 && static_cast<size_t>(len) < n) return buf;
    errno = ENAMETOOLONG;
    return nullptr;
}

// Keys become file names, so they are as long as a file name may be (Android
// itself has no limit on names since 8.0), with no '/' and no leading '.',
// which also keeps "." and ".." and the writers' temporary files (".tmp.*")
// out of the key space.
bool valid_key(const char *key) {
    if (key == nullptr || key[0] == '.' || strchr(key, '/') != nullptr) return false;
    size_t n = strlen(key);
    return n > 0 && n <= NAME_MAX;
}

// mkdir -p. Parts that already exist just fail with EEXIST; returns the first
// other errno (a part that cannot be made), or 0.
int make_dirs(char *path, mode_t mode) {
    int first = 0;
    for (char *p = path + 1;; ++p) {
        if (*p != '/' && *p != '\0') continue;
        char c = *p;
        *p = '\0';
        if (mkdir(path, mode) != 0 && errno != EEXIST && first == 0) first = errno;
        *p = c;
        if (c == '\0') return first;
    }
}

// Writes the path of key's file into out and returns 0, or returns
// kPropertyBadKey or -errno for a store that cannot be used. The store in the
// user's state directory is used only when it is a directory of our own, as
// it was when it lived in /tmp under a name anyone could guess.
int key_path(const char *key, char *out, size_t n, bool create) {
    if (!valid_key(key)) return atcmd::kPropertyBadKey;
    bool per_user;
    if (store_dir(out, n, &per_user) == nullptr) return -errno;
    int made = create ? make_dirs(out, per_user ? 0700 : 0755) : 0;
    struct stat st;
    if ((per_user ? lstat(out, &st) : stat(out, &st)) != 0) return -(made != 0 ? made : errno);
    if (!S_ISDIR(st.st_mode)) return -ENOTDIR;
    if (per_user && st.st_uid != geteuid()) return -EPERM;
    size_t len = strlen(out);
    int k = snprintf(out + len, n - len, "/%s", key);
    return k >= 0 && static_cast<size_t>(k) < n - len ? 0 : -ENAMETOOLONG;
}

int errno_or_eio() { return errno != 0 ? -errno : -EIO; }

}  // namespace

namespace atcmd {

const char *property_dir(char *buf, size_t n) {
    bool per_user;
    return store_dir(buf, n, &per_user);
}

}  // namespace atcmd

extern "C" int property_get(const char *key, char *value, const char *default_value) {
    if (value == nullptr) return -1;
    char path[PATH_MAX];
    size_t got = 0;
    int fd = -1;
    if (key_path(key, path, sizeof path, false) == 0) fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
        for (ssize_t r; got < PROPERTY_VALUE_MAX - 1; got += static_cast<size_t>(r))
            if ((r = read(fd, value + got, PROPERTY_VALUE_MAX - 1 - got)) <= 0) break;
        close(fd);
    }
    value[got] = '\0';
    size_t n = strlen(value);
    if (n > 0) return static_cast<int>(n);
    if (default_value == nullptr) return 0;
    n = strnlen(default_value, PROPERTY_VALUE_MAX - 1);
    memcpy(value, default_value, n);
    value[n] = '\0';
    return static_cast<int>(n);
}

extern "C" int property_set(const char *key, const char *value) {
    if (value == nullptr) value = "";
    size_t len = strlen(value);
    char path[PATH_MAX], tmp[PATH_MAX];
    if (!valid_key(key)) return atcmd::kPropertyBadKey;
    if (len >= PROPERTY_VALUE_MAX) return atcmd::kPropertyValueTooLong;
    if (int rc = key_path(key, path, sizeof path, true)) return rc;
    // Unique among threads and processes, so writers never share a temporary.
    static std::atomic<unsigned> counter{0};
    int dir_len = static_cast<int>(strrchr(path, '/') - path);
    int k = snprintf(tmp, sizeof tmp, "%.*s/.tmp.%d.%d.%u", dir_len, path,
                     static_cast<int>(getpid()), static_cast<int>(gettid()), counter++);
    if (k < 0 || static_cast<size_t>(k) >= sizeof tmp) return -ENAMETOOLONG;

    int fd = open(tmp, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) return -errno;
    errno = 0;
    int rc = write(fd, value, len) == static_cast<ssize_t>(len) ? 0 : errno_or_eio();
    if (close(fd) != 0 && rc == 0) rc = -errno;
    bool read_only = strncmp(key, "ro.", 3) == 0;
    if (rc == 0 && (read_only ? link(tmp, path) : rename(tmp, path)) != 0)
        rc = read_only && errno == EEXIST ? atcmd::kPropertyReadOnly : -errno;
    if (rc != 0 || read_only) unlink(tmp);
    return rc;
}
