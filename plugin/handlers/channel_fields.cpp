#include "plugin/handlers/channel_fields.h"

#include <cctype>
#include <cstdio>
#include <cstring>

#include "plugin/pipeline/error_catalogue.h"

namespace QXKORVAProtocol::channel {
namespace {

bool isJsonNumber(const Json::Value& value) {
    const Json::ValueType type = value.type();
    return type == Json::intValue || type == Json::uintValue || type == Json::realValue;
}

// Whether a scalar member can be written under the field's kind (and range).
bool scalarUsable(const Field& field, const Json::Value* value) {
    if (value == nullptr) return false;
    switch (field.kind) {
        case Kind::kString:
            return value->isString();
        case Kind::kInteger:
            return value->isInt() && value->asInt() >= field.minValue &&
                   value->asInt() <= field.maxValue;
        case Kind::kBoolean:
            return value->isBool();
        case Kind::kNumberText:
            return isJsonNumber(*value);
        case Kind::kAnyText:
            // Arrays and objects have no text form.
            return !value->isArray() && !value->isObject();
        case Kind::kSection:
        case Kind::kCustom:
            break;
    }
    return false;
}

// Text of a member that scalarUsable accepted.
std::string scalarText(const Field& field, const Json::Value& value) {
    switch (field.kind) {
        case Kind::kInteger:
            return std::to_string(value.asInt());
        case Kind::kBoolean:
            return value.asBool() ? "true" : "false";
        case Kind::kNumberText: {
            char buffer[128] = {};
            std::snprintf(buffer, sizeof(buffer), "%lf", value.asDouble());
            return buffer;
        }
        default:
            return value.asString();
    }
}

// A section or custom element was found: enter it, read its content, leave it.
int readNested(const Field& field, QXBase::CXmlBase& xml, Json::Value* out) {
    if (!xml.IntoElem()) {
        return field.fromXml == Rule::kRequired ? kResultConvertFailed : kResultOk;
    }
    Json::Value content(Json::objectValue);
    const int result = field.kind == Kind::kSection ? readFields(*field.section, xml, &content)
                                                    : field.custom->read(&content, xml);
    xml.OutOfElem();
    if (result != kResultOk) return kResultConvertFailed;
    (*out)[field.name] = std::move(content);
    return kResultOk;
}

int readField(const Field& field, QXBase::CXmlBase& xml, Json::Value* out) {
    if (field.fromXml == Rule::kNever) return kResultOk;
    if (!xml.FindElem(field.name)) {
        return field.fromXml == Rule::kRequired ? kResultConvertFailed : kResultOk;
    }
    switch (field.kind) {
        case Kind::kString:
        case Kind::kAnyText:
            (*out)[field.name] = xml.GetData();
            break;
        case Kind::kInteger:
        case Kind::kNumberText:
            (*out)[field.name] = leadingInt(xml.GetData());
            break;
        case Kind::kBoolean:
            (*out)[field.name] = xml.GetData() == "true";
            break;
        case Kind::kSection:
        case Kind::kCustom:
            return readNested(field, xml, out);
    }
    return kResultOk;
}

bool checkField(const Field& field, const Json::Value& object) {
    if (field.toXml == Rule::kNever) return true;
    const Json::Value* value = member(object, field.name);
    if (field.kind == Kind::kSection || field.kind == Kind::kCustom) {
        if (value == nullptr) return field.toXml != Rule::kRequired;
        return field.kind == Kind::kSection ? checkFields(*field.section, *value)
                                            : field.custom->check(*value);
    }
    return field.toXml != Rule::kRequired || scalarUsable(field, value);
}

int writeField(const Field& field, QXBase::CXmlBase& xml, const Json::Value& object) {
    if (field.toXml == Rule::kNever) return kResultOk;
    const Json::Value* value = member(object, field.name);
    const bool required = field.toXml == Rule::kRequired;
    switch (field.kind) {
        case Kind::kSection: {
            if (value == nullptr) {
                if (field.toXml == Rule::kDefault) {
                    writeDefaultSection(xml, field.name, field.section->defaults);
                }
                return required ? kResultConvertFailed : kResultOk;
            }
            return writeSection(*field.section, field.name, xml, *value);
        }
        case Kind::kCustom:
            if (value == nullptr) return required ? kResultConvertFailed : kResultOk;
            return field.custom->write(xml, *value);
        default:
            if (!scalarUsable(field, value)) {
                return required ? kResultConvertFailed : kResultOk;
            }
            addTextElement(xml, field.name, scalarText(field, *value));
            return kResultOk;
    }
}

}  // namespace

const Json::Value* member(const Json::Value& value, const char* name) {
    if (!value.isObject()) return nullptr;
    return value.find(name, name + std::strlen(name));
}

int leadingInt(const std::string& text) {
    size_t i = 0;
    while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i]))) ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
    constexpr long long kLimit = static_cast<long long>(INT_MAX) + 1;
    long long magnitude = 0;
    for (; i < text.size() && std::isdigit(static_cast<unsigned char>(text[i])); ++i) {
        magnitude = magnitude * 10 + (text[i] - '0');
        if (magnitude > kLimit) magnitude = kLimit;  // saturate; keeps the product in range
    }
    const long long value = negative ? -magnitude : magnitude;
    if (value > INT_MAX) return INT_MAX;
    return static_cast<int>(value);
}

int readFields(const Section& section, QXBase::CXmlBase& xml, Json::Value* out) {
    for (const Field& field : section.fields) {
        if (readField(field, xml, out) != kResultOk) return kResultConvertFailed;
    }
    return kResultOk;
}

bool checkFields(const Section& section, const Json::Value& value) {
    if (!value.isObject()) return false;
    for (const Field& field : section.fields) {
        if (!checkField(field, value)) return false;
    }
    return true;
}

int writeFields(const Section& section, QXBase::CXmlBase& xml, const Json::Value& value) {
    if (!value.isObject()) return kResultConvertFailed;
    for (const Field& field : section.fields) {
        if (writeField(field, xml, value) != kResultOk) return kResultConvertFailed;
    }
    return kResultOk;
}

int readSection(const Section& section, QXBase::CXmlBase& xml, Json::Value* out) {
    Json::Value content(Json::objectValue);
    if (readFields(section, xml, &content) != kResultOk) return kResultConvertFailed;
    *out = std::move(content);
    return kResultOk;
}

int writeSection(const Section& section, const char* name, QXBase::CXmlBase& xml,
                 const Json::Value& value) {
    if (!checkFields(section, value)) return kResultConvertFailed;
    xml.AddNode(name);
    const int result = writeFields(section, xml, value);
    xml.OutOfElem();
    return result;
}

void addTextElement(QXBase::CXmlBase& xml, const char* name, const std::string& text) {
    xml.AddNode(name, text);
    xml.OutOfElem();
}

void writeDefaultSection(QXBase::CXmlBase& xml, const char* name,
                         std::span<const DefaultElement> defaults) {
    xml.AddNode(name);
    for (const DefaultElement& element : defaults) addTextElement(xml, element.name, element.text);
    xml.OutOfElem();
}

}  // namespace QXKORVAProtocol::channel
