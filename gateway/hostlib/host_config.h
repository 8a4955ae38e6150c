// The user and network configuration the plug-in reads through host/config_mgr.h.
// Gateway side of the host library (not visible to a plug-in). Thread-safe unless noted.
#pragma once

#include <optional>
#include <string>

#include "host/config_mgr.h"

namespace korva::host {

void setUserConfig(bool activated, const std::string& realm);
// nullopt: QX_GatewayCfgBus_GetAccessProtocol returns null.
void setNetworkConfig(const std::optional<QXConfigMgr::NetworkPorts>& ports);

}  // namespace korva::host
