// The command line of korva-gateway:
//   korva-gateway [--config FILE] [--listen HOST:PORT] [--admin-listen HOST:PORT]
//                 [--tls-listen HOST:PORT] [--plugin PATH] [--log-level N]
//   korva-gateway --check-config FILE [flags]      (validate the file and its profiles, then exit)
//   korva-gateway --version | --help
// Flags override the configuration file.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>

#include "gateway/app/gateway_config.h"

namespace korva::gateway {

struct CommandLine {
    std::optional<std::string> config;
    std::optional<std::string> listen;
    std::optional<std::string> adminListen;
    std::optional<std::string> tlsListen;
    std::optional<std::string> plugin;
    std::optional<std::string> logLevel;
    std::optional<std::string> checkConfig;  // the file to validate
    bool help = false;
    bool version = false;
};

class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Accepts "--flag value" and "--flag=value". Throws UsageError.
CommandLine parseCommandLine(int argc, const char* const* argv);

// Applies the flags to the configuration, then checks what depends on flags and file together
// (checkCombination); throws ConfigError naming the flag or the file's member.
void applyFlags(const CommandLine& flags, GatewayConfig* config);

const char* usageText();

}  // namespace korva::gateway
