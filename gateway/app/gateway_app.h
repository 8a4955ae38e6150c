// Runs korva-gateway for one configuration: configures the host, attaches the simulated
// devices, loads and initialises the plug-in, serves both listeners and, on SIGINT or SIGTERM,
// uninitialises the plug-in, shuts the host down and closes every connection.
#pragma once

#include <string>

#include "gateway/app/gateway_config.h"

namespace korva::gateway {

// Blocks SIGINT and SIGTERM (runGateway waits for them: they request a clean stop) in the
// calling thread and so in every thread started later, and ignores SIGPIPE. Call first in main,
// before any thread starts.
void installStopHandlers();

// Raises the soft limit of open files to the hard limit.
void raiseOpenFileLimit();

// The exit status: 0 after a clean stop, 1 when the plug-in or a listener cannot start.
// `credentialsNote`: printed after the listening line when not empty, with "@KORVA@" replaced
// by the KORVA listener's address.
int runGateway(const GatewayConfig& config, const std::string& credentialsNote);

}  // namespace korva::gateway
