// The gateway's configuration, as the host's configuration manager hands it out.
// Each call returns a snapshot; the objects are immutable and safe to share between threads.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace QXConfigMgr {

class CUserCfg {
  public:
    CUserCfg(bool activated, std::string realm)
        : m_activated(activated), m_realm(std::move(realm)) {}
    // Nonzero when the gateway is activated.
    int isActivated() const { return m_activated ? 1 : 0; }
    // Digest realm.
    std::string getRealm() const { return m_realm; }

  private:
    bool m_activated;
    std::string m_realm;
};

struct NetworkPorts {
    uint16_t httpPort = 80;
    uint16_t httpsPort = 443;
    uint16_t rtspPort = 554;
    bool httpsEnabled = true;
    bool portMapping = false;
    uint16_t extHttpPort = 8080;
    uint16_t extHttpsPort = 8443;
    uint16_t extRtspPort = 8554;
};

class CNetworkCfg {
  public:
    explicit CNetworkCfg(const NetworkPorts& ports) : m_ports(ports) {}
    uint16_t getHttpPort() const { return m_ports.httpPort; }
    uint16_t getHttpsPort() const { return m_ports.httpsPort; }
    uint16_t getRtspPort() const { return m_ports.rtspPort; }
    int getHttpsEnable() const { return m_ports.httpsEnabled ? 1 : 0; }
    int isPlatformPortMapping() const { return m_ports.portMapping ? 1 : 0; }
    uint16_t getExtHttpPort() const { return m_ports.extHttpPort; }
    uint16_t getExtHttpsPort() const { return m_ports.extHttpsPort; }
    uint16_t getExtRtspPort() const { return m_ports.extRtspPort; }

  private:
    NetworkPorts m_ports;
};

}  // namespace QXConfigMgr

// The user configuration (never null).
std::shared_ptr<QXConfigMgr::CUserCfg> QX_ConfigMgr_GetUserCfg();
// The network configuration; null when the gateway has none.
std::shared_ptr<QXConfigMgr::CNetworkCfg> QX_GatewayCfgBus_GetAccessProtocol();
