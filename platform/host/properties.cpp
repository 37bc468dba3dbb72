// System properties on a host, shared by every process under one file-system
// root: the module, the console, the accessory simulator program, the
// atcmd-getprop/atcmd-setprop tools and a person's shell. Android keeps them
// in an area under /dev/__properties__ that init owns; a host has no init, so
// the store is a directory of that name under ATCMD_SYSROOT with one file per
// key, which any process can read or write without a service to talk to.
// Without a sysroot the module drives a real accessory from a Linux PC, where
// /dev is not ours to write, so the store is a private per-user directory:
// $XDG_RUNTIME_DIR/atcmd-properties, else /tmp/atcmd-properties-<uid>.
// ATCMD_PROPERTY_DIR, when set and non-empty, names the directory and wins
// over both (for instance to share one store between several sysroots).
//
// A writer fills a temporary file in the same directory and renames it over
// the key's file, so a reader sees the old value or the new one, never part of
// one, with no lock between processes. A ro.* key is published with link(),
// which fails when the name exists, so only the first writer anywhere wins.
#include "platform/property_store.h"

#include <cutils/properties.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>

#include "platform/sysroot.h"

namespace {

const char *env(const char *name) {
    const char *v = getenv(name);
    return v != nullptr && v[0] != '\0' ? v : nullptr;
}

// *per_user is set for the fallbacks used outside any sysroot.
const char *store_dir(char *buf, size_t n, bool *per_user) {
    *per_user = false;
    int len;
    if (const char *dir = env("ATCMD_PROPERTY_DIR")) {
        len = snprintf(buf, n, "%s", dir);
    } else if (const char *root = env("ATCMD_SYSROOT")) {
        static const char kArea[] = "/dev/__properties__";
        atcmd::resolve_path(kArea, buf, n);
        len = static_cast<int>(strlen(root) + sizeof kArea - 1);
    } else {
        *per_user = true;
        if (const char *run = env("XDG_RUNTIME_DIR"))
            len = snprintf(buf, n, "%s/atcmd-properties", run);
        else
            len = snprintf(buf, n, "/tmp/atcmd-properties-%u", static_cast<unsigned>(getuid()));
    }
    return len >= 0 && static_cast<size_t>(len) < n ? buf : nullptr;
}

// Keys become file names: besides Android's length limit, no '/' and no
// leading '.', which also keeps "." and ".." and the writers' temporary files
// (".tmp.*") out of the key space.
bool valid_key(const char *key) {
    if (key == nullptr || key[0] == '.' || strchr(key, '/') != nullptr) return false;
    size_t n = strlen(key);
    return n > 0 && n < PROPERTY_KEY_MAX;
}

// mkdir -p; parts that already exist just fail with EEXIST.
void make_dirs(char *path, mode_t mode) {
    for (char *p = path + 1;; ++p) {
        if (*p != '/' && *p != '\0') continue;
        char c = *p;
        *p = '\0';
        mkdir(path, mode);
        *p = c;
        if (c == '\0') return;
    }
}

// The path of key's file in out, or nullptr for a bad key or an unusable
// store. A per-user fallback in /tmp has a name anyone can guess, so it is
// used only when it is our own directory.
const char *key_path(const char *key, char *out, size_t n, bool create) {
    bool per_user;
    if (!valid_key(key) || store_dir(out, n, &per_user) == nullptr) return nullptr;
    if (create) make_dirs(out, per_user ? 0700 : 0755);
    struct stat st;
    if (per_user && (lstat(out, &st) != 0 || !S_ISDIR(st.st_mode) || st.st_uid != geteuid()))
        return nullptr;
    size_t len = strlen(out);
    int k = snprintf(out + len, n - len, "/%s", key);
    return k >= 0 && static_cast<size_t>(k) < n - len ? out : nullptr;
}

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
    if (key_path(key, path, sizeof path, false) != nullptr) fd = open(path, O_RDONLY | O_CLOEXEC);
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
    if (len >= PROPERTY_VALUE_MAX || key_path(key, path, sizeof path, true) == nullptr) return -1;
    // Unique among threads and processes, so writers never share a temporary.
    static std::atomic<unsigned> counter{0};
    int dir_len = static_cast<int>(strrchr(path, '/') - path);
    int k = snprintf(tmp, sizeof tmp, "%.*s/.tmp.%d.%d.%u", dir_len, path,
                     static_cast<int>(getpid()), static_cast<int>(gettid()), counter++);
    if (k < 0 || static_cast<size_t>(k) >= sizeof tmp) return -1;

    int fd = open(tmp, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) return -1;
    bool ok = write(fd, value, len) == static_cast<ssize_t>(len);
    ok = close(fd) == 0 && ok;
    bool read_only = strncmp(key, "ro.", 3) == 0;
    if (ok) ok = read_only ? link(tmp, path) == 0 : rename(tmp, path) == 0;
    if (!ok || read_only) unlink(tmp);
    return ok ? 0 : -1;
}
