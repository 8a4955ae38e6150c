// The configuration manager: snapshots of the user and network configuration.
#include <memory>
#include <mutex>
#include <optional>

#include "gateway/hostlib/host_control.h"
#include "host/config_mgr.h"

namespace {

struct ConfigState {
    std::mutex mutex;
    std::shared_ptr<QXConfigMgr::CUserCfg> user =
        std::make_shared<QXConfigMgr::CUserCfg>(true, "KORVA Gateway");
    std::shared_ptr<QXConfigMgr::CNetworkCfg> network =
        std::make_shared<QXConfigMgr::CNetworkCfg>(QXConfigMgr::NetworkPorts{});
};

ConfigState& config() {
    static ConfigState* s = new ConfigState;  // never destroyed: readable until exit
    return *s;
}

}  // namespace

std::shared_ptr<QXConfigMgr::CUserCfg> QX_ConfigMgr_GetUserCfg() {
    ConfigState& s = config();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.user;
}

std::shared_ptr<QXConfigMgr::CNetworkCfg> QX_GatewayCfgBus_GetAccessProtocol() {
    ConfigState& s = config();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.network;
}

namespace korva::host {

void setUserConfig(bool activated, const std::string& realm) {
    auto next = std::make_shared<QXConfigMgr::CUserCfg>(activated, realm);
    ConfigState& s = config();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.user = std::move(next);
}

void setNetworkConfig(const std::optional<QXConfigMgr::NetworkPorts>& ports) {
    std::shared_ptr<QXConfigMgr::CNetworkCfg> next;
    if (ports) next = std::make_shared<QXConfigMgr::CNetworkCfg>(*ports);
    ConfigState& s = config();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.network = std::move(next);
}

}  // namespace korva::host
