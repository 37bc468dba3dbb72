#include "client/loader.h"

#include <dlfcn.h>
#include <string.h>

namespace atcmd_client {

std::string module_path(const std::string &dir, const std::string &variant) {
    return dir + "/" ATCMDPROCESS_HARDWARE_MODULE_ID "." + variant + ".so";
}

Module::~Module() {
    if (handle_ != nullptr && dev_ == nullptr) dlclose(handle_);
}

bool Module::load(const std::string &dir, const std::string &variant, std::string *error) {
    return load_path(module_path(dir, variant), error);
}

bool Module::load_path(const std::string &path, std::string *error) {
    if (handle_ != nullptr) {
        *error = "a module is already loaded from " + path_;
        return false;
    }
    path_ = path;
    handle_ = dlopen(path_.c_str(), RTLD_NOW);
    if (handle_ == nullptr) {
        const char *why = dlerror();
        *error = why != nullptr ? why : "cannot load " + path_;
        return false;
    }
    auto *hmi = static_cast<hw_module_t *>(dlsym(handle_, HAL_MODULE_INFO_SYM_AS_STR));
    if (hmi == nullptr) {
        *error = path_ + ": no " HAL_MODULE_INFO_SYM_AS_STR " record";
    } else if (hmi->id == nullptr || strcmp(hmi->id, ATCMDPROCESS_HARDWARE_MODULE_ID) != 0) {
        *error = path_ + ": module id is \"" + (hmi->id != nullptr ? hmi->id : "(null)") +
                 "\", not \"" ATCMDPROCESS_HARDWARE_MODULE_ID "\"";
    } else {
        hmi->dso = handle_;
        hmi_ = hmi;
        return true;
    }
    dlclose(handle_);
    handle_ = nullptr;
    return false;
}

atcmdprocess_device_t *Module::open(std::string *error) {
    if (hmi_ == nullptr) {
        *error = "no module loaded";
        return nullptr;
    }
    if (hmi_->methods == nullptr || hmi_->methods->open == nullptr) {
        *error = path_ + ": the module record has no open method";
        return nullptr;
    }
    hw_device_t *common = nullptr;
    int rc = hmi_->methods->open(hmi_, ATCMDPROCESS_HARDWARE_MODULE_ID, &common);
    if (rc != 0 || common == nullptr) {
        *error = path_ + ": open failed (" + std::to_string(rc) + ")";
        return nullptr;
    }
    // `common` is the first member of the device object.
    dev_ = reinterpret_cast<atcmdprocess_device_t *>(common);
    return dev_;
}

void *Module::raw_sym(const char *name) const {
    return handle_ != nullptr ? dlsym(handle_, name) : nullptr;
}

}  // namespace atcmd_client
