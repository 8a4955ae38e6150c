// The devices reachable through the device configuration bus, and the bus's bounds and counters.
// Gateway side of the host library (not visible to a plug-in). Thread-safe unless noted.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace korva::host {

// One request relayed by QX_DeviceCfgBus_ProcessAsyn.
struct DeviceRequest {
    int method = 0;        // 0 GET, 1 PUT, 2 POST, 3 DELETE
    std::string path;      // the gateway URL before "?"
    std::string url;       // the whole gateway URL
    std::string devIndex;  // from the URL's devIndex parameter
    std::string body;
};

// Answers one request. Call at most once, from any thread; a reply after the timeout (or
// after a detach) is dropped. Bytes are passed to the plug-in's callback as they are.
using DeviceReply = std::function<void(std::string bytes)>;

// A device reachable through the bus: a simulated camera or a scripted test device.
class DeviceEndpoint {
  public:
    virtual ~DeviceEndpoint() = default;
    // Called on a bus worker thread. May reply now, later (keep the DeviceReply), or never.
    virtual void handle(const DeviceRequest& request, DeviceReply reply) = 0;
};

// Adds (or replaces) a device and marks it attached; notifies event 0 when it was detached.
void attachDevice(const std::string& devIndex, std::shared_ptr<DeviceEndpoint> endpoint);
// Marks a known device attached again (event 0). False when unknown.
bool reattachDevice(const std::string& devIndex);
// Marks a device detached: lookups fail, relays are refused, event 1 is notified. False when
// unknown or already detached.
bool detachDevice(const std::string& devIndex);
// Forgets every device (no notifications).
void clearDevices();

// Bounds on outstanding relays, so that one device or one client cannot take the whole bus. A
// relay holds a device slot and a client slot from acceptance until its answer (or the timeout,
// or its client leaving); beyond a device's or a client's bound the relay is still accepted but
// answered at once, on a bus thread, with the device-busy status object (the client gets 503 and
// may retry). maxTotal also counts answers not yet delivered; beyond it QX_DeviceCfgBus_ProcessAsyn
// refuses with result 10. A relay whose request ends (the client left) is answered at once with
// the device-busy status (nobody receives it) and frees its slots; the device's answer is then
// dropped on arrival.
struct RelayLimits {
    int maxPerDevice = 256;  // relays waiting for one device (a burst of requests included)
    int maxPerClient = 512;  // relays of one client address (ExchangeBackend::peer)
    int maxTotal = 4096;     // relays of the whole bus
};
void setRelayLimits(const RelayLimits& limits);

struct RelayStats {
    uint64_t outstanding = 0;  // relays holding slots now
    uint64_t busyDevice = 0;   // answered busy at once: the device's bound was reached
    uint64_t busyClient = 0;   // answered busy at once: the client's bound was reached
    uint64_t refusedFull = 0;  // refused with result 10: maxTotal reached
    uint64_t clientLeft = 0;   // released because the request ended before the answer
    uint64_t timedOut = 0;     // answered busy because the device did not answer in time
};
RelayStats relayStats();

struct DeviceState {
    std::string devIndex;
    bool attached = false;
};
std::vector<DeviceState> listDevices();

}  // namespace korva::host
