#include "plugin/handlers/device_convert.h"

#include <json/writer.h>

#include <cmath>
#include <limits>

namespace QXKORVAProtocol::device {

namespace {

// Text of a leaf member read as `type`; false when the member has another JSON type.
bool leafText(const Json::Value& member, FieldType type, std::string* text) {
    switch (type) {
        case FieldType::kInt32:
            if (!member.isInt()) return false;
            *text = std::to_string(member.asInt());
            return true;
        case FieldType::kBool:
            if (!member.isBool()) return false;
            *text = boolText(member.asBool());
            return true;
        case FieldType::kString:
            if (!member.isString()) return false;
            *text = member.asString();
            return true;
        case FieldType::kStringOrNull:
            if (!member.isString() && !member.isNull()) return false;
            *text = member.isNull() ? std::string() : member.asString();
            return true;
        case FieldType::kObject:
        case FieldType::kFixedText:
            break;
    }
    return false;
}

bool failRow(const FieldRow& row, const FieldRow** failed) {
    if (failed) *failed = &row;
    return false;
}

bool writeField(QXBase::CXmlBase& doc, const Json::Value& object, const FieldRow& row,
                const FieldRow** failed) {
    const char* element = row.element ? row.element : row.key;
    if (row.type == FieldType::kFixedText) {
        addLeaf(doc, element, row.fixedText ? row.fixedText : "");
        return true;
    }
    const Json::Value* member = nullptr;
    findMember(object, row.key, &member);
    if (member == nullptr) {
        return row.presence == FieldPresence::kRequired ? failRow(row, failed) : true;
    }
    if (row.type == FieldType::kObject) {
        if (!member->isObject()) {
            return row.presence == FieldPresence::kWhenTyped ? true : failRow(row, failed);
        }
        doc.AddNode(element);
        if (!writeFields(doc, *member, row.children, failed)) return false;
        doc.OutOfElem();
        return true;
    }
    std::string text;
    if (!leafText(*member, row.type, &text)) {
        return row.presence == FieldPresence::kWhenTyped ? true : failRow(row, failed);
    }
    addLeaf(doc, element, text);
    return true;
}

}  // namespace

bool findMember(const Json::Value& container, const char* key, const Json::Value** member) {
    *member = nullptr;
    if (container.isNull()) return true;
    if (!container.isObject()) return false;
    *member = container.find(key, key + std::char_traits<char>::length(key));
    return true;
}

bool readAsText(const Json::Value& value, std::string* out) {
    if (value.isArray() || value.isObject()) return false;
    *out = value.asString();
    return true;
}

bool readAsInt32(const Json::Value& value, int32_t* out) {
    if (value.isNull()) {
        *out = 0;
    } else if (value.isBool()) {
        *out = value.asBool() ? 1 : 0;
    } else if (value.isInt()) {
        *out = value.asInt();
    } else if (value.type() == Json::realValue) {
        const double real = value.asDouble();
        if (!(real >= std::numeric_limits<int32_t>::min() &&
              real <= std::numeric_limits<int32_t>::max())) {
            return false;
        }
        *out = static_cast<int32_t>(real);
    } else {
        return false;
    }
    return true;
}

bool readAsBool(const Json::Value& value, bool* out) {
    if (value.isNull()) {
        *out = false;
    } else if (value.isBool() || value.isNumeric()) {
        *out = value.asBool();
    } else {
        return false;
    }
    return true;
}

bool writeFields(QXBase::CXmlBase& doc, const Json::Value& object, std::span<const FieldRow> rows,
                 const FieldRow** failed) {
    if (failed) *failed = nullptr;
    if (!isContainer(object)) return false;
    for (const FieldRow& row : rows) {
        if (!writeField(doc, object, row, failed)) return false;
    }
    return true;
}

void addLeaf(QXBase::CXmlBase& doc, const char* name, const std::string& text) {
    doc.AddNode(name, text);
    doc.OutOfElem();
}

void startDocument(QXBase::CXmlBase& doc, const char* root) {
    doc.CreateDeclaration("1.0", "UTF-8");
    doc.CreateRoot(root);
}

std::string writeJsonBody(const Json::Value& value) {
    return Json::FastWriter().write(value);
}

}  // namespace QXKORVAProtocol::device
