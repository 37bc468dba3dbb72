// Loads the module the way Android's hardware loader does, so that every
// client on the host (the console, the scenarios, the benches) exercises
// exactly what the HIDL service gets: the file <dir>/atcmdprocess.<variant>.so
// opened with RTLD_NOW, its "HMI" record with the right id, the handle stored
// in the record, then the record's open.
#ifndef ATCMD_CLIENT_LOADER_H
#define ATCMD_CLIENT_LOADER_H

#include <string>

#include "atcmdprocess.h"

namespace atcmd_client {

// "<dir>/atcmdprocess.<variant>.so"
std::string module_path(const std::string &dir, const std::string &variant = "default");

class Module {
public:
    Module() = default;
    // Unloads only a module that was never opened: once open, the service
    // threads run code from the library until the process ends.
    ~Module();
    Module(const Module &) = delete;
    Module &operator=(const Module &) = delete;

    // dlopen, dlsym("HMI"), the id check, hmi->dso. On failure returns false
    // and says why in *error.
    bool load(const std::string &dir, const std::string &variant, std::string *error);
    // The same for a library named by its whole path (a build's own output).
    bool load_path(const std::string &path, std::string *error);
    // The record's open; the device object, or nullptr with *error set.
    // Each call opens anew, as a client's second open does on a phone:
    // device() is then the latest device.
    atcmdprocess_device_t *open(std::string *error);

    // An exported name: a global (T is its type) or a function (T is its
    // signature, e.g. sym<int(void)>("get_kavren_sn")); nullptr if absent.
    template <typename T>
    T *sym(const char *name) const {
        return reinterpret_cast<T *>(raw_sym(name));
    }
    void *raw_sym(const char *name) const;

    bool loaded() const { return hmi_ != nullptr; }
    hw_module_t *hmi() const { return hmi_; }
    atcmdprocess_device_t *device() const { return dev_; }
    const std::string &path() const { return path_; }

private:
    void *handle_ = nullptr;
    hw_module_t *hmi_ = nullptr;
    atcmdprocess_device_t *dev_ = nullptr;
    std::string path_;
};

}  // namespace atcmd_client

#endif
