// Reading JSON values without the library's exceptions. The library refuses a member lookup on
// anything but an object or null, and a conversion between incompatible types, by throwing;
// these functions test first, so a converter fails with its result code instead of unwinding.
// Thread safety: pure functions.
#pragma once

#include <json/value.h>

namespace QXKORVAProtocol {

// An object, or null (which has no members): a value member lookups may read.
inline bool isContainer(const Json::Value& value) {
    return value.isObject() || value.isNull();
}

// The member key of value; null when value has no such member or is not an object.
const Json::Value* findMember(const Json::Value& value, const char* key);

}  // namespace QXKORVAProtocol
