// Table-driven conversion between the members of a JSON object and the child elements of an XML
// element. A table is an ordered list of Field rows; each row names a member, the kind of value it
// holds and, for each direction, whether it must, may or must not be carried. The device answers,
// the streaming channel documents (both directions) and the alarms are converted with their own
// tables and this one engine.
//
// Kinds: how a usable JSON value becomes element text (to XML), and element text a JSON value
// (from XML).
//   kString        a JSON string, copied               | the text
//   kStringOrNull  a JSON string, or null (empty text) | the text
//   kInt32         a JSON integer (an integral real counts) within [minValue, maxValue], decimal
//                                                      | the leading integer of the text
//                                                        (KVL_Atoi32 rules), a JSON integer
//   kBool          a JSON boolean, "true" / "false"    | true only for the exact text "true"
//   kNumber        any JSON number, "%f" (six decimals), cut to maxText bytes when maxText is set
//                                                      | like kInt32
//   kAnyText       any JSON value but an array or object, in the library's text form | the text
//   kFixedText     no member is read: fixedText        | not read
//   kObject        a JSON object: an element holding the rows of `children`, in their order
//                                                      | the children read into an object
//   kList          any value: an element; when the value is an array, each entry that is an object
//                  holding the member `item` adds an `item` element with the rows of `children` of
//                  that member (which must be an object); null entries and entries without `item`
//                  are skipped, any other entry fails    | not read
//   kCustom        custom->write                       | custom->read
//
// Rules, per direction. A value is unusable when it does not fit its kind (a present but
// unreadable element, from XML).
//   kRequired   missing or unusable: the conversion fails
//   kOptional   missing: left out; unusable: the conversion fails
//   kWhenTyped  missing or unusable: left out
//   kDefault    (kObject, to XML) missing: the element holding `defaults`; unusable: fails
//   kNever      not carried in this direction
//
// Writing appends to the document as it goes: after a failure the document holds a partial tree
// and must be dropped. Every JSON access tests the type first, so values of any JSON type are
// safe to pass.
// Thread safety: tables are constants and the functions touch only their arguments.
#pragma once

#include <json/value.h>

#include <climits>
#include <cstddef>
#include <span>
#include <string>

#include "host/xml_base.h"

namespace QXKORVAProtocol::fields {

enum class Kind : unsigned char {
    kString,
    kStringOrNull,
    kInt32,
    kBool,
    kNumber,
    kAnyText,
    kFixedText,
    kObject,
    kList,
    kCustom,
};

enum class Rule : unsigned char { kRequired, kOptional, kWhenTyped, kDefault, kNever };

// An element written with fixed text (the content of a kDefault object that is missing).
struct DefaultElement {
    const char* name;
    const char* text;
};

// Operations of a kCustom row, both 0 on success.
struct CustomField {
    // Reads the element's content into *out; the cursor is inside the element.
    int (*read)(Json::Value* out, QXBase::CXmlBase& xml);
    // Appends the element (and its content) to the current element.
    int (*write)(QXBase::CXmlBase& xml, const Json::Value& value);
};

// One row: the JSON member `name` and the XML element `element` (`name` when null).
struct Field {
    const char* name;
    Kind kind = Kind::kString;
    Rule toXml = Rule::kRequired;
    Rule fromXml = Rule::kNever;
    const char* element = nullptr;
    std::span<const Field> children = {};           // kObject, kList
    const char* item = nullptr;                     // kList: member and element of each entry
    std::span<const DefaultElement> defaults = {};  // kObject with kDefault
    const CustomField* custom = nullptr;            // kCustom
    const char* fixedText = nullptr;                // kFixedText
    int minValue = INT_MIN;                         // kInt32
    int maxValue = INT_MAX;                         // kInt32
    std::size_t maxText = 0;                        // kNumber: longest text, 0 for no limit
    int failCode = 0;  // the caller's own tag for the row (for example a log message number)
};

// Appends, for each row in order, the child elements of the current element of doc from the
// members of object (an object, or null, which has no members). On failure returns false and
// sets *failed (when given) to the row that failed, or to nullptr when object is neither an
// object nor null.
bool writeFields(QXBase::CXmlBase& doc, const Json::Value& object, std::span<const Field> rows,
                 const Field** failed = nullptr);

// Appends, for each entry of list in order, an `item` element holding the rows written from the
// entry's member `item`; every entry must hold `item` as an object. A list that is not an array
// adds nothing. On failure *failed (when given) is the row that failed, or nullptr when an entry
// has no usable `item`.
bool writeItems(QXBase::CXmlBase& doc, const Json::Value& list, const char* item,
                std::span<const Field> rows, const Field** failed = nullptr);

// Appends <name> holding the rows written from value, which must be an object.
bool writeObject(QXBase::CXmlBase& doc, const char* name, std::span<const Field> rows,
                 const Json::Value& value);

// Appends <name> holding the default elements.
void writeDefaults(QXBase::CXmlBase& doc, const char* name,
                   std::span<const DefaultElement> defaults);

// Reads the rows from the children of the cursor's parent, in table order, with the ordered
// search (an element is found only after the one found before it), into the object *out.
bool readFields(QXBase::CXmlBase& xml, std::span<const Field> rows, Json::Value* out);

// readFields into a fresh object; *out is replaced only on success.
bool readObject(QXBase::CXmlBase& xml, std::span<const Field> rows, Json::Value* out);

}  // namespace QXKORVAProtocol::fields
