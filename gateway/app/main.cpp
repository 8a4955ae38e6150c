// korva-gateway: serves the KORVA protocol plug-in over HTTP with simulated cameras.
#include <iostream>
#include <random>

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

}  // namespace

int main(int argc, char** argv) {
    using namespace korva::gateway;
    installStopHandlers();
    raiseOpenFileLimit();
    try {
        const CommandLine flags = parseCommandLine(argc, argv);
        if (flags.help) {
            std::cout << usageText();
            return 0;
        }
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
        return runGateway(config, note);
    } catch (const UsageError& error) {
        std::cerr << "korva-gateway: " << error.what() << "\n" << usageText();
        return kExitUsage;
    } catch (const ConfigError& error) {
        std::cerr << "korva-gateway: configuration error: " << error.what() << std::endl;
        return kExitUsage;
    }
}
