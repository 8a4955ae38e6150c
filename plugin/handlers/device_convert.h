// Helpers shared by the device-resource handlers (device maintenance, events and I/O, image,
// PTZ, content search): reading device answers without the JSON library's exceptions.
//
// The JSON library refuses a member lookup on anything but an object or null, and a conversion
// between incompatible types, by throwing. These helpers test first and report such a value as
// a failure, so a converter fails with its result code instead of unwinding.
// All functions are stateless and thread-safe.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

namespace QXKORVAProtocol::device {

// The library's text reading: strings as they are, numbers and booleans in their JSON text form,
// null as "". False for arrays and objects.
bool readAsText(const Json::Value& value, std::string* out);

// The library's 32-bit integer reading (null 0, booleans 0/1, numbers within range, reals
// truncated). False for strings, containers and numbers outside the signed 32-bit range.
bool readAsInt32(const Json::Value& value, int32_t* out);

// The library's boolean reading (null false, numbers nonzero). False for strings and containers.
bool readAsBool(const Json::Value& value, bool* out);

// The compact JSON text of a gateway request body (one line, keys ascending, final line feed).
std::string writeJsonBody(const Json::Value& value);

}  // namespace QXKORVAProtocol::device
