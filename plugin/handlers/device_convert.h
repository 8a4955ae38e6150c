// Helpers shared by the device-resource handlers (device maintenance, events and I/O, image,
// PTZ, content search): reading device answers without the JSON library's exceptions, writing
// leaf elements and table-driven member copying.
//
// The JSON library refuses a member lookup on anything but an object or null, and a conversion
// between incompatible types, by throwing. These helpers test first and report such a value as
// a failure, so a converter fails with its result code instead of unwinding.
// All functions are stateless and thread-safe.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <span>
#include <string>

#include "host/xml_base.h"

namespace QXKORVAProtocol::device {

// An object, or null (which has no members): a value member lookups may read.
inline bool isContainer(const Json::Value& value) {
    return value.isObject() || value.isNull();
}

// *member = the member key of container, or nullptr when it has none (a null container has no
// members). False, *member = nullptr, when container is neither an object nor null.
bool findMember(const Json::Value& container, const char* key, const Json::Value** member);

// The library's text reading: strings as they are, numbers and booleans in their JSON text form,
// null as "". False for arrays and objects.
bool readAsText(const Json::Value& value, std::string* out);

// The library's 32-bit integer reading (null 0, booleans 0/1, numbers within range, reals
// truncated). False for strings, containers and numbers outside the signed 32-bit range.
bool readAsInt32(const Json::Value& value, int32_t* out);

// The library's boolean reading (null false, numbers nonzero). False for strings and containers.
bool readAsBool(const Json::Value& value, bool* out);

inline const char* boolText(bool value) {
    return value ? "true" : "false";
}

// How a row of a member table reads its JSON member.
enum class FieldType {
    kInt32,         // a whole number within signed 32 bits (integral reals too), decimal text
    kBool,          // a JSON boolean, "true" / "false"
    kString,        // a JSON string, copied
    kStringOrNull,  // a JSON string, or null written as an empty element
    kObject,        // a JSON object, written as an element holding the rows of `children`
    kFixedText,     // no member is read: the element always holds `fixedText`
};

enum class FieldPresence {
    kRequired,   // missing or of another type: the copy fails
    kOptional,   // missing: left out; of another type: the copy fails
    kWhenTyped,  // written only when present with the row's type; otherwise left out silently
};

// One row of a member table: JSON member `key` becomes the element `element` (the key itself
// when null).
struct FieldRow {
    const char* key;
    FieldType type = FieldType::kString;
    FieldPresence presence = FieldPresence::kRequired;
    const char* element = nullptr;
    std::span<const FieldRow> children = {};
    const char* fixedText = nullptr;
    int failCode = 0;  // the caller's own tag for the row (for example a log message number)
};

// Appends, for each row in order, one child element to the current element of doc from the
// members of object. On failure returns false and sets *failed (when given) to the row that
// failed, or to nullptr when object itself is neither an object nor null; doc then holds a
// partial tree and must be dropped.
bool writeFields(QXBase::CXmlBase& doc, const Json::Value& object, std::span<const FieldRow> rows,
                 const FieldRow** failed = nullptr);

// AddNode(name, text) and back out to the level it was added at.
void addLeaf(QXBase::CXmlBase& doc, const char* name, const std::string& text);

// Declaration version "1.0", encoding "UTF-8", and the root element (entered).
void startDocument(QXBase::CXmlBase& doc, const char* root);

// The compact JSON text of a gateway request body (one line, keys ascending, final line feed).
std::string writeJsonBody(const Json::Value& value);

}  // namespace QXKORVAProtocol::device
