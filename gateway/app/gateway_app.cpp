#include "gateway/app/gateway_app.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <thread>
#include <vector>

#include "gateway/server/gateway_server.h"
#include "gateway/server/plugin_loader.h"
#include "gateway/sim/alarm_simulator.h"
#include "gateway/sim/device_profile.h"
#include "gateway/sim/sim_camera.h"
#include "gateway/sim/sim_scheduler.h"

namespace korva::gateway {

namespace {

constexpr const char* kPluginFile = "libkorva_protocol.so";

// Written by the signal handler, read by the main thread: a stop signal may arrive on any thread
// (the host library starts threads before main), so the handler only writes one byte.
int stopPipe[2] = {-1, -1};

void onStopSignal(int) {
    const char byte = 1;
    [[maybe_unused]] const ssize_t n = write(stopPipe[1], &byte, 1);
}

void configureHost(const GatewayConfig& config) {
    korva::host::setLogLevel(config.logLevel);
    korva::host::setUserConfig(config.activated, config.realm);
    korva::host::setNetworkConfig(config.network);
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
                        korva::host::publishAlarm(devIndex, bytes);
                        metrics.countAlarmPublished();
                    }));
            }
        }
        korva::host::attachDevice(device.devIndex, endpoint);
        if (!device.attached) korva::host::detachDevice(device.devIndex);
    }
    return simulators;
}

int ioThreadCount(const GatewayConfig& config) {
    if (config.ioThreads > 0) return config.ioThreads;
    const unsigned cores = std::thread::hardware_concurrency();
    return cores < 2 ? 2 : static_cast<int>(cores);
}

void waitForStopSignal() {
    char byte = 0;
    while (read(stopPipe[0], &byte, 1) < 0 && errno == EINTR) {
    }
}

}  // namespace

void installStopHandlers() {
    if (stopPipe[0] < 0 && pipe2(stopPipe, O_CLOEXEC) != 0) {
        std::perror("korva-gateway: pipe");
        std::exit(1);
    }
    struct sigaction action {};
    action.sa_handler = onStopSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
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
    sim::SimScheduler scheduler;
    auto simulators = attachDevices(config, scheduler, server.metrics());

    plugin.api().init();
    server.start();
    std::cout << "korva-gateway listening on http://" << server.korvaAddress()
              << ", admin on http://" << server.adminAddress() << std::endl;
    if (!credentialsNote.empty()) {
        std::string note = credentialsNote;
        if (const auto at = note.find("@KORVA@"); at != std::string::npos) {
            note.replace(at, 7, server.korvaAddress());
        }
        std::cout << note << std::endl;
    }
    for (auto& simulator : simulators) simulator->start(scheduler);

    waitForStopSignal();

    scheduler.stop();
    server.stopAccepting();
    plugin.api().uninit();
    korva::host::shutdown();
    server.closeConnections();
    korva::host::clearDevices();
    return 0;
}

}  // namespace korva::gateway
