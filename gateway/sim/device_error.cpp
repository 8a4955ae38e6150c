#include "gateway/sim/device_error.h"

#include <json/json.h>

#include <array>

#include "gateway/hostlib/json_text.h"

namespace korva::sim {

namespace {

constexpr std::array<const char*, 7> kStatusStrings = {"OK",
                                                       "Device Busy",
                                                       "Device Error",
                                                       "Invalid Operation",
                                                       "Invalid Format",
                                                       "Content Error",
                                                       "Reboot Required"};

std::uint32_t categoryOf(std::uint32_t errorCode) {
    const std::uint32_t category = errorCode >> 28;
    return category == 0 ? 1 : category;
}

}  // namespace

const char* statusStringOf(std::uint32_t errorCode) {
    const std::uint32_t category = categoryOf(errorCode);
    return category <= kStatusStrings.size() ? kStatusStrings[category - 1] : "Device Error";
}

std::string deviceStatus(std::uint32_t errorCode, const std::string& message) {
    Json::Value status(Json::objectValue);
    status["statusCode"] = static_cast<Json::UInt>(categoryOf(errorCode));
    status["statusString"] = statusStringOf(errorCode);
    status["errorCode"] = static_cast<Json::Int>(errorCode);
    status["errorMsg"] = message;
    return korva::host::writeCompactJson(status);
}

std::string deviceOk() {
    return deviceStatus(kOk, "Operation completed.");
}

}  // namespace korva::sim
