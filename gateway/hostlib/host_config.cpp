// The configuration manager: snapshots of the user and network configuration.
#include "gateway/hostlib/host_config.h"

#include <memory>
#include <mutex>
#include <optional>

#include "gateway/hostlib/host_context.h"
#include "host/config_mgr.h"

namespace korva::host::detail {

// Snapshots of the user and network configuration; readers share the current one.
class ConfigStore {
  public:
    std::mutex mutex;
    std::shared_ptr<QXConfigMgr::CUserCfg> user =
        std::make_shared<QXConfigMgr::CUserCfg>(true, "KORVA Gateway");
    std::shared_ptr<QXConfigMgr::CNetworkCfg> network =
        std::make_shared<QXConfigMgr::CNetworkCfg>(QXConfigMgr::NetworkPorts{});
};

template struct PartDeleter<ConfigStore>;
template Owned<ConfigStore> makePart<ConfigStore>();

}  // namespace korva::host::detail

namespace {

korva::host::detail::ConfigStore& config() {
    return korva::host::detail::context().config();
}

}  // namespace

std::shared_ptr<QXConfigMgr::CUserCfg> QX_ConfigMgr_GetUserCfg() {
    auto& s = config();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.user;
}

std::shared_ptr<QXConfigMgr::CNetworkCfg> QX_GatewayCfgBus_GetAccessProtocol() {
    auto& s = config();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.network;
}

namespace korva::host {

void setUserConfig(bool activated, const std::string& realm) {
    auto next = std::make_shared<QXConfigMgr::CUserCfg>(activated, realm);
    auto& s = config();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.user = std::move(next);
}

void setNetworkConfig(const std::optional<QXConfigMgr::NetworkPorts>& ports) {
    std::shared_ptr<QXConfigMgr::CNetworkCfg> next;
    if (ports) next = std::make_shared<QXConfigMgr::CNetworkCfg>(*ports);
    auto& s = config();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.network = std::move(next);
}

}  // namespace korva::host
