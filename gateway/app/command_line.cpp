#include "gateway/app/command_line.h"

#include <unistd.h>

#include <array>
#include <climits>
#include <utility>

namespace korva::gateway {

namespace {

using Member = std::optional<std::string> CommandLine::*;

constexpr std::array<std::pair<const char*, Member>, 7> kFlags = {{
    {"--config", &CommandLine::config},
    {"--check-config", &CommandLine::checkConfig},
    {"--listen", &CommandLine::listen},
    {"--admin-listen", &CommandLine::adminListen},
    {"--tls-listen", &CommandLine::tlsListen},
    {"--plugin", &CommandLine::plugin},
    {"--log-level", &CommandLine::logLevel},
}};

std::string absolute(const std::string& path) {
    if (path.empty() || path.front() == '/') return path;
    char cwd[PATH_MAX];
    if (getcwd(cwd, sizeof cwd) == nullptr) return path;
    return std::string(cwd) + "/" + path;
}

}  // namespace

const char* usageText() {
    return "usage: korva-gateway [--config FILE] [--listen HOST:PORT] [--admin-listen HOST:PORT]\n"
           "                     [--tls-listen HOST:PORT] [--plugin PATH] [--log-level N]\n"
           "       korva-gateway --check-config FILE [flags]   (validate; never listens)\n"
           "       korva-gateway --version | --help\n"
           "  --tls-listen HOST:PORT   serve KORVA over HTTPS too (tls.listen)\n"
           "  --log-level N   1 (most detail) to 5 (failures only); default 4\n";
}

CommandLine parseCommandLine(int argc, const char* const* argv) {
    CommandLine line;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "--help" || arg == "-h") {
            line.help = true;
            continue;
        }
        if (arg == "--version") {
            line.version = true;
            continue;
        }
        std::string value;
        bool hasValue = false;
        if (const auto eq = arg.find('='); eq != std::string::npos && arg.rfind("--", 0) == 0) {
            value = arg.substr(eq + 1);
            arg.resize(eq);
            hasValue = true;
        }
        Member target = nullptr;
        for (const auto& [name, member] : kFlags) {
            if (arg == name) target = member;
        }
        if (target == nullptr) throw UsageError("unknown argument \"" + arg + "\"");
        if (!hasValue) {
            if (i + 1 >= argc) throw UsageError(arg + " needs a value");
            value = argv[++i];
        }
        line.*target = value;
    }
    return line;
}

void applyFlags(const CommandLine& flags, GatewayConfig* config) {
    std::string problem;
    if (flags.listen && !parseListenAddress(*flags.listen, &config->listen, &problem)) {
        throw ConfigError("--listen: " + problem);
    }
    if (flags.adminListen &&
        !parseListenAddress(*flags.adminListen, &config->adminListen, &problem)) {
        throw ConfigError("--admin-listen: " + problem);
    }
    if (flags.tlsListen) {
        ListenAddress tls;
        if (!parseListenAddress(*flags.tlsListen, &tls, &problem)) {
            throw ConfigError("--tls-listen: " + problem);
        }
        config->tls.listen = tls;
    }
    checkCombination(*config,
                     flags.adminListen ? "--admin-listen" : config->source + ": adminListen");
    if (flags.plugin) {
        if (flags.plugin->empty()) throw ConfigError("--plugin: must not be empty");
        config->pluginPath = absolute(*flags.plugin);
    }
    if (flags.logLevel) {
        const std::string& text = *flags.logLevel;
        if (text.size() != 1 || text[0] < '1' || text[0] > '5') {
            throw ConfigError("--log-level: must be an integer within 1..5 (got \"" + text + "\")");
        }
        config->logLevel = text[0] - '0';
    }
}

}  // namespace korva::gateway
