// The JSON bodies with which the alert service puts a device on the alarm bus. Both are written
// compactly by Json::FastWriter (one line, members in key order, a line feed at the end).
#pragma once

#include <string>

namespace QXKORVAProtocol {

// Body of QX_AlarmBus_Subscribe: the subscription starts with this one device, all its alarms.
std::string buildSubscribeBody(const std::string& devIndex);
// Body of QX_AlarmBus_AddDevice: one more device for the existing subscription.
std::string buildAddDeviceBody(const std::string& devIndex);

}  // namespace QXKORVAProtocol
