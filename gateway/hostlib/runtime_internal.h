// Internal hooks between the parts of the host library (not for plug-ins or the gateway).
#pragma once

namespace korva::host::detail {

// Stops the runtime's timer thread and forgets every timer (part of korva::host::shutdown).
void stopRuntimeThreads();

}  // namespace korva::host::detail
