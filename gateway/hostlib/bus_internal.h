// Internal hooks between the device manager and the device configuration bus (not for plug-ins
// or the gateway).
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "gateway/hostlib/host_devices.h"

namespace korva::host::detail {

// An attached device as the bus sees it when it accepts a relay. The epoch changes every time
// the device is (re)attached, so a reply can tell whether the device went away meanwhile.
struct AttachedDevice {
    std::shared_ptr<DeviceEndpoint> endpoint;
    uint64_t epoch = 0;
};

// The attached device of that index, or nullopt when unknown or detached.
std::optional<AttachedDevice> findAttachedDevice(const std::string& devIndex);
// True while the device stays attached since the lookup that gave epoch.
bool isStillAttached(const std::string& devIndex, uint64_t epoch);

}  // namespace korva::host::detail
