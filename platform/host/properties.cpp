// In-process system property store for host builds. Android keeps properties
// in a shared area owned by init; on a host there is no such service, so the
// module, its tests and any client in the same process share this table.
#include <cutils/properties.h>

#include <string.h>

#include <mutex>

namespace {

constexpr size_t kMaxProperties = 256;

struct Property {
    char key[PROPERTY_KEY_MAX];
    char value[PROPERTY_VALUE_MAX];
};

Property g_props[kMaxProperties];
size_t g_nprops;
std::mutex g_props_lock;

// Caller holds g_props_lock.
Property *find_locked(const char *key) {
    for (size_t i = 0; i < g_nprops; ++i)
        if (strcmp(g_props[i].key, key) == 0) return &g_props[i];
    return nullptr;
}

bool valid_key(const char *key) {
    if (key == nullptr) return false;
    size_t n = strlen(key);
    return n > 0 && n < PROPERTY_KEY_MAX;
}

}  // namespace

extern "C" int property_get(const char *key, char *value, const char *default_value) {
    if (value == nullptr) return -1;
    value[0] = '\0';
    if (valid_key(key)) {
        std::lock_guard<std::mutex> guard(g_props_lock);
        const Property *p = find_locked(key);
        if (p != nullptr && p->value[0] != '\0') {
            size_t n = strlen(p->value);
            memcpy(value, p->value, n + 1);
            return static_cast<int>(n);
        }
    }
    if (default_value == nullptr) return 0;
    size_t n = strnlen(default_value, PROPERTY_VALUE_MAX - 1);
    memcpy(value, default_value, n);
    value[n] = '\0';
    return static_cast<int>(n);
}

extern "C" int property_set(const char *key, const char *value) {
    if (!valid_key(key)) return -1;
    if (value == nullptr) value = "";
    size_t n = strlen(value);
    if (n >= PROPERTY_VALUE_MAX) return -1;

    std::lock_guard<std::mutex> guard(g_props_lock);
    Property *p = find_locked(key);
    if (p != nullptr) {
        if (strncmp(key, "ro.", 3) == 0) return -1;  // read-only once set
    } else {
        if (g_nprops == kMaxProperties) return -1;
        p = &g_props[g_nprops++];
        memcpy(p->key, key, strlen(key) + 1);
    }
    memcpy(p->value, value, n + 1);
    return 0;
}
