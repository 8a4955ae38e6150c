// Stopping the host's threads (host_context.h owns them and states the order).
// Gateway side of the host library (not visible to a plug-in). Thread-safe unless noted.
#pragma once

namespace korva::host {

// Stops the host's threads (bus workers, alarm delivery, notifications, timers), dropping queued
// work. Call after the plug-in has been uninitialised.
void shutdown();

}  // namespace korva::host
