// The status objects a simulated device answers with, in the gateway's JSON device protocol:
// {"errorCode":N,"errorMsg":"...","statusCode":C,"statusString":"..."}. C is the top four bits
// of N (the status category).
#pragma once

#include <cstdint>
#include <string>

namespace korva::sim {

// Error numbers the simulated devices use.
enum : std::uint32_t {
    kOk = 0x00000001,                // ok
    kNotSupport = 0x40000001,        // resource the device does not have
    kMethodNotAllowed = 0x40000004,  // known resource, other method
    kIdNotExist = 0x40001001,        // unknown preset
    kBadJsonFormat = 0x50000002,     // body is not JSON
    kBadParameters = 0x60000001,     // value of the wrong kind or inconsistent
    kBadJsonContent = 0x60000017,    // required member missing
    kInvalidSearchConditions = 0x6000001A,
    kBeyondRangeLimit = 0x60000025,  // value outside what the device accepts
    kTimeFormatError = 0x60000041,
    kInvalidChannel = 0x6000004F,  // unknown channel or port
};

// The statusString of a status category (1 to 7).
const char* statusStringOf(std::uint32_t errorCode);

// A compact status object for the error number, with errorMsg = message.
std::string deviceStatus(std::uint32_t errorCode, const std::string& message);

// The success status object (errorCode 1).
std::string deviceOk();

}  // namespace korva::sim
