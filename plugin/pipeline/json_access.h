// JSON values as the converters use them: read without the library's exceptions, written as the
// compact text of a gateway request body. The library refuses a member lookup on anything but an
// object or null, and a conversion between incompatible types, by throwing; the readers test
// first, so a converter fails with its result code instead of unwinding.
// Thread safety: pure functions.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

namespace QXKORVAProtocol {

// An object, or null (which has no members): a value member lookups may read.
inline bool isContainer(const Json::Value& value) {
    return value.isObject() || value.isNull();
}

// The member key of value; null when value has no such member or is not an object.
const Json::Value* findMember(const Json::Value& value, const char* key);

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

}  // namespace QXKORVAProtocol
