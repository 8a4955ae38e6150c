#include "plugin/alert/alarm_bus_bodies.h"

#include <json/value.h>
#include <json/writer.h>

namespace QXKORVAProtocol {
namespace {

Json::Value deviceEntry(const std::string& devIndex) {
    Json::Value dev(Json::objectValue);
    dev["devIndex"] = devIndex;
    dev["uploadMode"] = "all";
    return dev;
}

}  // namespace

std::string buildSubscribeBody(const std::string& devIndex) {
    Json::Value item(Json::objectValue);
    item["Dev"] = deviceEntry(devIndex);
    Json::Value mgmt(Json::objectValue);
    mgmt["eventMode"] = "device";
    mgmt["DevEventList"].append(item);
    Json::Value root(Json::objectValue);
    root["SubscribeDeviceMgmt"] = mgmt;
    return Json::FastWriter().write(root);
}

std::string buildAddDeviceBody(const std::string& devIndex) {
    Json::Value root(Json::objectValue);
    root["SubscribeDevEvent"] = deviceEntry(devIndex);
    return Json::FastWriter().write(root);
}

}  // namespace QXKORVAProtocol
