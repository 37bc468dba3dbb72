/*
 * Host stand-in for Android's <cutils/properties.h>. The library provides the
 * two functions itself on a host (a store of one file per key with Android's
 * rules, see platform/host/properties.cpp), so that every process under the
 * same file-system root shares the module's properties.
 */
#ifndef ATCMD_HOST_CUTILS_PROPERTIES_H
#define ATCMD_HOST_CUTILS_PROPERTIES_H

#ifdef __cplusplus
extern "C" {
#endif

/* As in Android's header. Since Android 8 a name may be longer than
 * PROPERTY_KEY_MAX, which only binds the legacy read API; property_set here
 * takes keys of 1 to NAME_MAX characters, the longest file name. A value is at
 * most PROPERTY_VALUE_MAX - 1 characters. property_set returns 0 or a negative
 * reason (platform/property_errors.h), Android's only -1. */
#define PROPERTY_KEY_MAX 32
#define PROPERTY_VALUE_MAX 92

__attribute__((visibility("default"))) int property_get(const char *key, char *value,
                                                        const char *default_value);
__attribute__((visibility("default"))) int property_set(const char *key, const char *value);

#ifdef __cplusplus
}
#endif

#endif
