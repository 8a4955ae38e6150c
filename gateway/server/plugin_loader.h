// Loads a protocol plug-in with dlopen and resolves its three entry points.
#pragma once

#include <string>

#include "host/plugin_abi.h"

namespace korva::gateway {

struct PluginApi {
    QX_Protocol_Init_Fn init = nullptr;
    QX_Protocol_Uninit_Fn uninit = nullptr;
    QX_Protocol_HTTPProcess_Fn process = nullptr;
};

class PluginLibrary {
  public:
    PluginLibrary() = default;
    // The library stays loaded for the life of the process: the plug-in's singleton and the
    // records it keeps until process end must stay valid, so there is no dlclose.
    ~PluginLibrary() = default;
    PluginLibrary(const PluginLibrary&) = delete;
    PluginLibrary& operator=(const PluginLibrary&) = delete;

    // Loads `path`; false with a message in *error when the library or a symbol is missing.
    bool load(const std::string& path, std::string* error);
    const PluginApi& api() const { return m_api; }
    bool loaded() const { return m_handle != nullptr; }

  private:
    void* m_handle = nullptr;
    PluginApi m_api;
};

// The directory of the running executable ("" when unknown).
std::string executableDirectory();

}  // namespace korva::gateway
