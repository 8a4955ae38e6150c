// A device profile: how a configured device departs from the built-in camera (fixed answers,
// raw bytes, silence, latency, simulated alarms), and the endpoint that applies it.
#pragma once

#include <json/json.h>

#include <chrono>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>

#include "gateway/hostlib/host_devices.h"
#include "gateway/sim/sim_scheduler.h"

namespace korva::sim {

struct DeviceProfile {
    int latencyMs = 0;
    std::map<std::string, std::string> resources;  // "METHOD PATH" -> compact JSON text
    std::map<std::string, std::string> raw;        // "METHOD PATH" -> bytes
    std::set<std::string> silent;                  // "METHOD PATH"
    int alarmIntervalMs = 0;
};

// A profile member that is wrong: `field` names it ("resources[\"GET /x\"]", "latencyMs").
class ProfileError : public std::runtime_error {
  public:
    ProfileError(std::string field, const std::string& problem)
        : std::runtime_error(problem), m_field(std::move(field)) {}
    const std::string& field() const { return m_field; }

  private:
    std::string m_field;
};

// Reads a profile document; throws ProfileError.
DeviceProfile parseProfile(const Json::Value& root);

// The "METHOD PATH" key of a device request.
std::string requestKey(const korva::host::DeviceRequest& request);

// Applies a profile in front of another endpoint (normally the built-in camera): silent
// requests get no answer, `resources` and `raw` answers replace the device's, and every answer
// waits latencyMs on the scheduler. Thread-safe.
class ProfiledDevice : public korva::host::DeviceEndpoint {
  public:
    ProfiledDevice(DeviceProfile profile, std::shared_ptr<korva::host::DeviceEndpoint> device,
                   SimScheduler& scheduler)
        : m_profile(std::move(profile)), m_device(std::move(device)), m_scheduler(scheduler) {}

    void handle(const korva::host::DeviceRequest& request, korva::host::DeviceReply reply) override;

  private:
    const DeviceProfile m_profile;
    const std::shared_ptr<korva::host::DeviceEndpoint> m_device;
    SimScheduler& m_scheduler;
};

}  // namespace korva::sim
