// Publishing alarms on the alarm bus, and what the bus holds.
// Gateway side of the host library (not visible to a plug-in). Thread-safe unless noted.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace korva::host {

// Queues one alarm document for delivery. devIndex empty: to every subscription; otherwise to
// the subscriptions that include the device. False when the bus cannot take it (1024 alarms
// already wait for delivery): the alarm is refused, and the caller tells its source.
bool publishAlarm(const std::string& devIndex, const std::string& bytes);
// Deliveries so far: one per alarm and subscription whose routine took the whole document.
std::uint64_t alarmsDelivered();
// Forgets every subscription (QX_AlarmBus_CheckIDValid then reports 0).
void resetAlarmBus();

struct SubscriptionState {
    int id = 0;
    bool started = false;
    std::vector<std::string> devices;
};
std::vector<SubscriptionState> listSubscriptions();
// Blocks until every alarm published before the call has been delivered (tests).
void flushAlarms();

}  // namespace korva::host
