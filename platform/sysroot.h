// Every absolute path the module touches goes through SysPath, so that a test,
// a simulator or a Linux PC can run the module against a private tree of
// dev/, sys/ and sdcard/ instead of the real device nodes.
#ifndef ATCMD_PLATFORM_SYSROOT_H
#define ATCMD_PLATFORM_SYSROOT_H

#include <limits.h>
#include <stddef.h>

namespace atcmd {

// Writes the resolved form of the absolute path `abs` into out (size n), NUL
// terminated, truncated if it does not fit. Returns out.
const char *resolve_path(const char *abs, char *out, size_t n);

class SysPath {
public:
    explicit SysPath(const char *abs) { resolve_path(abs, buf_, sizeof buf_); }
    const char *c_str() const { return buf_; }

private:
    char buf_[PATH_MAX];
};

}  // namespace atcmd

#endif
