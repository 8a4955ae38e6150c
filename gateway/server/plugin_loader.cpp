#include "gateway/server/plugin_loader.h"

#include <dlfcn.h>
#include <unistd.h>

#include <climits>

namespace korva::gateway {

namespace {

template <typename Fn>
bool resolve(void* handle, const char* name, Fn* out, std::string* error) {
    dlerror();
    void* symbol = dlsym(handle, name);
    if (symbol == nullptr) {
        const char* reason = dlerror();
        *error = std::string("missing entry point ") + name + (reason ? ": " : "") +
                 (reason ? reason : "");
        return false;
    }
    *out = reinterpret_cast<Fn>(symbol);
    return true;
}

}  // namespace

bool PluginLibrary::load(const std::string& path, std::string* error) {
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char* reason = dlerror();
        *error = reason ? reason : "dlopen failed";
        return false;
    }
    PluginApi api;
    if (!resolve(handle, QX_PROTOCOL_INIT_SYMBOL, &api.init, error) ||
        !resolve(handle, QX_PROTOCOL_UNINIT_SYMBOL, &api.uninit, error) ||
        !resolve(handle, QX_PROTOCOL_HTTPPROCESS_SYMBOL, &api.process, error)) {
        dlclose(handle);
        return false;
    }
    m_handle = handle;
    m_api = api;
    return true;
}

std::string executableDirectory() {
    char buffer[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    if (n <= 0) return "";
    std::string path(buffer, static_cast<std::size_t>(n));
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? "" : path.substr(0, slash);
}

}  // namespace korva::gateway
