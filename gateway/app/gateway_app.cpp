#include "gateway/app/gateway_app.h"

#include <signal.h>
#include <sys/resource.h>

#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "gateway/app/tls_setup.h"
#include "gateway/hostlib/host_alarms.h"
#include "gateway/hostlib/host_config.h"
#include "gateway/hostlib/host_lifetime.h"
#include "gateway/hostlib/host_logging.h"
#include "gateway/server/gateway_server.h"
#include "gateway/server/plugin_loader.h"
#include "gateway/sim/alarm_simulator.h"
#include "gateway/sim/device_profile.h"
#include "gateway/sim/sim_camera.h"
#include "gateway/sim/sim_scheduler.h"

namespace korva::gateway {

namespace {

constexpr const char* kPluginFile = "libkorva_protocol.so";

void configureHost(const GatewayConfig& config) {
    korva::host::setLogLevel(config.logLevel);
    korva::host::setRelayLimits(config.relayLimits);
    korva::host::setUserConfig(config.activated, config.realm);
    korva::host::setAccounts(config.users, config.auth);
}

// Attaches every configured device; returns the alarm simulators to start.
std::vector<std::unique_ptr<sim::AlarmSimulator>> attachDevices(const GatewayConfig& config,
                                                                sim::SimScheduler& scheduler,
                                                                Metrics& metrics) {
    std::vector<std::unique_ptr<sim::AlarmSimulator>> simulators;
    for (const auto& device : config.devices) {
        std::shared_ptr<korva::host::DeviceEndpoint> endpoint =
            std::make_shared<sim::SimCamera>(device.devIndex);
        if (device.profile) {
            endpoint = std::make_shared<sim::ProfiledDevice>(*device.profile, endpoint, scheduler);
            if (device.profile->alarmIntervalMs > 0) {
                simulators.push_back(std::make_unique<sim::AlarmSimulator>(
                    device.devIndex, device.profile->alarmIntervalMs,
                    [&metrics](const std::string& devIndex, const std::string& bytes) {
                        if (korva::host::publishAlarm(devIndex, bytes)) {
                            metrics.countAlarmPublished();
                        } else {
                            metrics.countAlarmRefused();
                        }
                    }));
            }
        }
        korva::host::attachDevice(device.devIndex, endpoint);
        if (!device.attached) korva::host::detachDevice(device.devIndex);
    }
    return simulators;
}

// Account name -> device, so that the console names the device of each alert stream.
std::map<std::string, std::string> accountDevices(const GatewayConfig& config) {
    std::map<std::string, std::string> devices;
    for (const auto& user : config.users) devices[user.name] = user.devIndex;
    return devices;
}

int ioThreadCount(const GatewayConfig& config) {
    if (config.ioThreads > 0) return config.ioThreads;
    const unsigned cores = std::thread::hardware_concurrency();
    return cores < 2 ? 2 : static_cast<int>(cores);
}

sigset_t stopSignalSet() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    return set;
}

// The stop signals are blocked in every thread (installStopHandlers runs before any thread
// starts), so they stay pending until this thread takes them here. Waiting synchronously also
// works under sanitizers that defer asynchronous signal handlers.
void waitForStopSignal() {
    const sigset_t set = stopSignalSet();
    int signal = 0;
    while (sigwait(&set, &signal) != 0) {
    }
}

}  // namespace

void installStopHandlers() {
    const sigset_t set = stopSignalSet();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    ::signal(SIGPIPE, SIG_IGN);
}

void raiseOpenFileLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

int runGateway(const GatewayConfig& config, const std::string& credentialsNote) {
    std::optional<TlsSetup> tls;
    if (config.tls.listen) tls = prepareTls(config);  // a ConfigError stops the start here
    const std::string pluginPath =
        config.pluginPath.empty() ? executableDirectory() + "/" + kPluginFile : config.pluginPath;
    PluginLibrary plugin;
    std::string error;
    if (!plugin.load(pluginPath, &error)) {
        std::cerr << "korva-gateway: cannot load the protocol plug-in " << pluginPath << ": "
                  << error << std::endl;
        return 1;
    }

    configureHost(config);
    GatewayServer server(plugin.api(), config.limits, ioThreadCount(config));
    if (!server.bind(config.listen, config.adminListen, &error)) {
        std::cerr << "korva-gateway: " << error << std::endl;
        korva::host::shutdown();
        return 1;
    }
    ListenAddress https;
    std::string problem;
    if (tls) {
        if (!server.bindTls(*config.tls.listen, tls->context, &error) ||
            !parseListenAddress(server.tlsAddress(), &https, &problem)) {
            std::cerr << "korva-gateway: " << error << problem << std::endl;
            korva::host::shutdown();
            return 1;
        }
    }
    korva::host::setNetworkConfig(effectiveNetwork(config, tls ? https.port : 0));
    ListenAddress admin;
    if (!parseListenAddress(server.adminAddress(), &admin, &problem)) admin = config.adminListen;
    server.adminHandler().setAccess(AdminAccess(admin.host, admin.port, config.adminToken));
    server.streams().setAccountDevices(accountDevices(config));
    if (!AdminAccess::isLoopback(admin.host)) {
        std::cerr << "korva-gateway: warning: the admin API listens on " << server.adminAddress()
                  << ", beyond loopback; every call needs the admin token" << std::endl;
    }
    sim::SimScheduler scheduler;
    auto simulators = attachDevices(config, scheduler, server.metrics());

    plugin.api().init();
    server.start();
    std::cout << "korva-gateway listening on http://" << server.korvaAddress()
              << ", admin on http://" << server.adminAddress();
    if (tls) std::cout << ", https on https://" << server.tlsAddress();
    std::cout << std::endl;
    if (tls) std::cout << describeTls(*tls) << std::endl;
    if (!credentialsNote.empty()) {
        std::string note = credentialsNote;
        if (const auto at = note.find("@KORVA@"); at != std::string::npos) {
            note.replace(at, 7, server.korvaAddress());
        }
        std::cout << note << std::endl;
    }
    for (auto& simulator : simulators) simulator->start(scheduler);

    waitForStopSignal();

    // Connections first: once they drain and close, every stream write of the plug-in reports
    // the link broken at once, so uninitialising it never waits for a queued part.
    scheduler.stop();
    server.stopAccepting();
    server.closeConnections();
    plugin.api().uninit();
    korva::host::shutdown();
    korva::host::clearDevices();
    return 0;
}

}  // namespace korva::gateway
