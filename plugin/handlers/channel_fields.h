// Table-driven conversion between the elements of a StreamingChannel XML section and the
// members of the JSON object of the same name. A section is an ordered table of fields; each
// field says how its value is read from XML (PUT bodies) and written to XML (GET answers).
//
// Value kinds:
//   kString     XML text <-> JSON string.
//   kInteger    leading decimal integer of the text (atoi rules, 0 when none) -> JSON integer;
//               written back when the member holds a 32-bit integer (an integral real counts)
//               inside [minValue, maxValue].
//   kBoolean    JSON true only for the exact text "true"; written back from a JSON boolean.
//   kNumberText read like kInteger; written from any JSON number with "%lf" (six decimals).
//   kAnyText    read like kString; written as the text of any scalar JSON value.
//   kSection    a nested section (its own table); written only from a JSON object.
//   kCustom     a section with its own operations (Transport, Video, Audio, the protocol list).
//
// Rules per direction: kRequired (missing, or of the wrong JSON type, fails the conversion),
// kOptional (skipped when missing or unusable), kNever (not carried in that direction) and, for
// writing a kSection, kDefault (absent member: the section's default elements are written).
//
// Writing is split in two passes so that a failure leaves no partial section behind:
// checkFields() decides whether a JSON object can be written, writeFields() then writes it.
// Every JSON access goes through type tests, so values of any JSON type are safe to pass.
#pragma once

#include <json/value.h>

#include <climits>
#include <span>
#include <string>

#include "host/xml_base.h"

namespace QXKORVAProtocol::channel {

enum class Kind : unsigned char {
    kString,
    kInteger,
    kBoolean,
    kNumberText,
    kAnyText,
    kSection,
    kCustom
};
enum class Rule : unsigned char { kRequired, kOptional, kNever, kDefault };

struct Section;

// Operations of a kCustom field.
struct CustomSection {
    // Reads the element's content; the cursor is inside the element. 0 or 9.
    int (*read)(Json::Value* out, QXBase::CXmlBase& xml);
    // True when write() will succeed for this JSON value.
    bool (*check)(const Json::Value& value);
    // Appends the element (and its content) to the current parent. 0 or 9.
    int (*write)(QXBase::CXmlBase& xml, const Json::Value& value);
};

struct Field {
    const char* name;
    Kind kind;
    Rule fromXml;
    Rule toXml;
    int minValue = INT_MIN;
    int maxValue = INT_MAX;
    const Section* section = nullptr;
    const CustomSection* custom = nullptr;
};

// An element written with fixed text when a kDefault section is absent from the JSON.
struct DefaultElement {
    const char* name;
    const char* text;
};

struct Section {
    std::span<const Field> fields;
    std::span<const DefaultElement> defaults = {};
};

// Field builders, so that the tables read as one row per element.
constexpr Field text(const char* name, Rule fromXml, Rule toXml) {
    return {name, Kind::kString, fromXml, toXml};
}
constexpr Field integer(const char* name, Rule fromXml, Rule toXml, int minValue = INT_MIN,
                        int maxValue = INT_MAX) {
    return {name, Kind::kInteger, fromXml, toXml, minValue, maxValue};
}
constexpr Field boolean(const char* name, Rule fromXml, Rule toXml) {
    return {name, Kind::kBoolean, fromXml, toXml};
}
constexpr Field numberText(const char* name, Rule fromXml, Rule toXml) {
    return {name, Kind::kNumberText, fromXml, toXml};
}
constexpr Field anyText(const char* name, Rule fromXml, Rule toXml) {
    return {name, Kind::kAnyText, fromXml, toXml};
}
constexpr Field section(const char* name, Rule fromXml, Rule toXml, const Section* content) {
    return {name, Kind::kSection, fromXml, toXml, INT_MIN, INT_MAX, content};
}
constexpr Field custom(const char* name, Rule fromXml, Rule toXml, const CustomSection* ops) {
    return {name, Kind::kCustom, fromXml, toXml, INT_MIN, INT_MAX, nullptr, ops};
}

// The member `name` of value, or null when value is not an object or has no such member.
const Json::Value* member(const Json::Value& value, const char* name);

// Leading decimal integer of text with atoi rules (leading white space, optional sign, digits),
// 0 when there is none; values beyond the 32-bit range are clamped.
int leadingInt(const std::string& text);

// Reads the section's fields from the children of the cursor's parent, in table order, with
// the host cursor (an ordered search from the cursor). *out must be an object. 0 or 9.
int readFields(const Section& section, QXBase::CXmlBase& xml, Json::Value* out);

// True when value is an object that writeFields can write completely.
bool checkFields(const Section& section, const Json::Value& value);

// Appends the section's fields as children of the current parent, in table order. Returns 9
// only for a value that checkFields refuses.
int writeFields(const Section& section, QXBase::CXmlBase& xml, const Json::Value& value);

// readFields into a fresh object; *out is replaced only on success.
int readSection(const Section& section, QXBase::CXmlBase& xml, Json::Value* out);

// Appends <name> holding the section's fields, after checkFields; on failure nothing is
// appended and the result is 9.
int writeSection(const Section& section, const char* name, QXBase::CXmlBase& xml,
                 const Json::Value& value);

// Appends <name>text</name> to the current parent.
void addTextElement(QXBase::CXmlBase& xml, const char* name, const std::string& text);

// Appends <name> with the given default elements.
void writeDefaultSection(QXBase::CXmlBase& xml, const char* name,
                         std::span<const DefaultElement> defaults);

}  // namespace QXKORVAProtocol::channel
