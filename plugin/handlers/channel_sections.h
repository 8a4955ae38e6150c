// The field tables of a StreamingChannel document: row builders, so that each table reads as one
// row per element with its rule from XML (PUT bodies) and to XML (GET answers), and the encoder
// sections (Video, Audio) as custom rows, so that the document's top-level table can name them in
// its element order.
#pragma once

#include <climits>

#include "plugin/pipeline/field_table.h"

namespace QXKORVAProtocol::channel {

using fields::CustomField;
using fields::DefaultElement;
using fields::Field;
using fields::Kind;
using fields::Rule;

constexpr Field text(const char* name, Rule fromXml, Rule toXml) {
    return {.name = name, .kind = Kind::kString, .toXml = toXml, .fromXml = fromXml};
}
constexpr Field integer(const char* name, Rule fromXml, Rule toXml, int minValue = INT_MIN,
                        int maxValue = INT_MAX) {
    return {.name = name,
            .kind = Kind::kInt32,
            .toXml = toXml,
            .fromXml = fromXml,
            .minValue = minValue,
            .maxValue = maxValue};
}
constexpr Field boolean(const char* name, Rule fromXml, Rule toXml) {
    return {.name = name, .kind = Kind::kBool, .toXml = toXml, .fromXml = fromXml};
}
// Written with "%lf" into a 128-byte buffer.
constexpr Field numberText(const char* name, Rule fromXml, Rule toXml) {
    return {
        .name = name, .kind = Kind::kNumber, .toXml = toXml, .fromXml = fromXml, .maxText = 127};
}
constexpr Field anyText(const char* name, Rule fromXml, Rule toXml) {
    return {.name = name, .kind = Kind::kAnyText, .toXml = toXml, .fromXml = fromXml};
}
constexpr Field section(const char* name, Rule fromXml, Rule toXml, std::span<const Field> children,
                        std::span<const DefaultElement> defaults = {}) {
    return {.name = name,
            .kind = Kind::kObject,
            .toXml = toXml,
            .fromXml = fromXml,
            .children = children,
            .defaults = defaults};
}
constexpr Field custom(const char* name, Rule fromXml, Rule toXml, const CustomField* ops) {
    return {.name = name, .kind = Kind::kCustom, .toXml = toXml, .fromXml = fromXml, .custom = ops};
}

extern const CustomField kVideoSection;
extern const CustomField kAudioSection;

}  // namespace QXKORVAProtocol::channel
