// Where the host property store lives. The module's property_get/property_set
// and the atcmd-getprop/atcmd-setprop tools share this one rule, so a shell
// always looks at the store the module uses.
#ifndef ATCMD_PLATFORM_PROPERTY_STORE_H
#define ATCMD_PLATFORM_PROPERTY_STORE_H

#include <stddef.h>

namespace atcmd {

// Writes the store's directory into buf (size n) and returns buf, or nullptr
// when the path does not fit: $ATCMD_PROPERTY_DIR if set and non-empty, else
// $ATCMD_SYSROOT/dev/__properties__ if ATCMD_SYSROOT is set and non-empty,
// else $XDG_RUNTIME_DIR/atcmd-properties, else /tmp/atcmd-properties-<uid>.
// The directory may not exist yet: the first property_set creates it.
__attribute__((visibility("hidden"))) const char *property_dir(char *buf, size_t n);

}  // namespace atcmd

#endif
