// korva-gateway: serves the KORVA protocol plug-in over HTTP with simulated cameras.
#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <random>
#include <thread>

#include "gateway/app/build_info.h"
#include "gateway/app/command_line.h"
#include "gateway/app/gateway_app.h"
#include "gateway/app/gateway_config.h"

namespace {

constexpr int kExitUsage = 2;

std::string randomPassword() {
    static constexpr char kAlphabet[] = "ABCDEFGHJKLMNPQRSTUVWXYZabcdefghijkmnopqrstuvwxyz23456789";
    std::random_device device;
    std::uniform_int_distribution<std::size_t> pick(0, sizeof kAlphabet - 2);
    std::string password;
    for (int i = 0; i < 14; ++i) password += kAlphabet[pick(device)];
    return password;
}

// --check-config: every check of a start (the file, its profiles, the flags given with it),
// without loading the plug-in or listening. Throws what a start would.
int checkConfig(const korva::gateway::CommandLine& flags) {
    using namespace korva::gateway;
    if (flags.config) throw UsageError("--check-config names the file: leave out --config");
    GatewayConfig config = loadConfigFile(*flags.checkConfig);
    applyFlags(flags, &config);
    std::cout << "korva-gateway: " << config.source << ": configuration OK ("
              << config.devices.size() << " devices, " << config.users.size() << " users)"
              << std::endl;
    return 0;
}

// glibc hands threads arenas of their own, creating new ones up to eight per core. Threads come
// and go (the runtime's flexible pool ends workers idle for its timeout and starts new ones when
// streams open), so over minutes the gateway collects a dozen arenas, each holding free space of
// its own that the others cannot use, and the resident size creeps up until the limit. One arena
// per core (at least two) keeps it level at the same CPU per request. Set before any thread starts;
// a MALLOC_ARENA_MAX in the environment still decides.
void limitMallocArenas() {
    if (std::getenv("MALLOC_ARENA_MAX") != nullptr) return;
    mallopt(M_ARENA_MAX, static_cast<int>(std::max(2u, std::thread::hardware_concurrency())));
}

}  // namespace

int main(int argc, char** argv) {
    using namespace korva::gateway;
    limitMallocArenas();
    installStopHandlers();
    raiseOpenFileLimit();
    try {
        const CommandLine flags = parseCommandLine(argc, argv);
        if (flags.help) {
            std::cout << usageText();
            return 0;
        }
        if (flags.checkConfig) return checkConfig(flags);
        std::string note;
        GatewayConfig config;
        if (flags.config) {
            config = loadConfigFile(*flags.config);
        } else {
            const std::string password = randomPassword();
            config = defaultConfig(password);
            note = "credentials: user admin, password " + password + ", bound to device cam-1\n" +
                   "try: curl --digest -u 'admin:" + password +
                   "' http://@KORVA@/KORVA/System/deviceInfo";
        }
        applyFlags(flags, &config);
        if (config.pluginPath.empty()) config.pluginPath = defaultPluginPath();
        if (flags.version) {
            std::cout << versionText(config.pluginPath) << std::flush;
            return 0;
        }
        return runGateway(config, note);
    } catch (const UsageError& error) {
        std::cerr << "korva-gateway: " << error.what() << "\n" << usageText();
        return kExitUsage;
    } catch (const ConfigError& error) {
        std::cerr << "korva-gateway: configuration error: " << error.what() << std::endl;
        return kExitUsage;
    }
}
