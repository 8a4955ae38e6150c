#include "plugin/pipeline/field_table.h"

#include <cstdio>

#include "host/kvl_runtime.h"
#include "plugin/pipeline/json_access.h"
#include "plugin/pipeline/xml_text.h"

namespace QXKORVAProtocol::fields {
namespace {

const char* elementOf(const Field& row) {
    return row.element != nullptr ? row.element : row.name;
}

bool failRow(const Field& row, const Field** failed) {
    if (failed != nullptr) *failed = &row;
    return false;
}

// The "%f" text of value, cut to maxText bytes when maxText is set.
std::string fixedDecimals(double value, std::size_t maxText) {
    const int length = std::snprintf(nullptr, 0, "%f", value);
    std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
    std::snprintf(text.data(), text.size() + 1, "%f", value);
    if (maxText != 0 && text.size() > maxText) text.resize(maxText);
    return text;
}

// The element text of a scalar row; false when value does not fit the row's kind.
bool scalarText(const Field& row, const Json::Value& value, std::string* text) {
    switch (row.kind) {
        case Kind::kString:
            if (!value.isString()) return false;
            *text = value.asString();
            return true;
        case Kind::kStringOrNull:
            if (!value.isString() && !value.isNull()) return false;
            *text = value.isNull() ? std::string() : value.asString();
            return true;
        case Kind::kInt32:
            if (!value.isInt() || value.asInt() < row.minValue || value.asInt() > row.maxValue) {
                return false;
            }
            *text = std::to_string(value.asInt());
            return true;
        case Kind::kBool:
            if (!value.isBool()) return false;
            *text = boolText(value.asBool());
            return true;
        case Kind::kNumber:
            if (!value.isNumeric()) return false;
            *text = fixedDecimals(value.asDouble(), row.maxText);
            return true;
        case Kind::kAnyText:
            // Arrays and objects have no text form.
            if (value.isArray() || value.isObject()) return false;
            *text = value.asString();
            return true;
        case Kind::kFixedText:
        case Kind::kObject:
        case Kind::kList:
        case Kind::kCustom:
            break;
    }
    return false;
}

bool writeList(QXBase::CXmlBase& doc, const Field& row, const Json::Value& list,
               const Field** failed) {
    doc.AddNode(elementOf(row));
    bool ok = true;
    if (list.isArray()) {
        for (Json::ArrayIndex i = 0; ok && i < list.size(); ++i) {
            const Json::Value& entry = list[i];
            if (entry.isNull()) continue;
            if (!entry.isObject()) return failRow(row, failed);
            const Json::Value* item = findMember(entry, row.item);
            if (item == nullptr) continue;
            if (!item->isObject()) return failRow(row, failed);
            doc.AddNode(row.item);
            ok = writeFields(doc, *item, row.children, failed);
            doc.OutOfElem();
        }
    }
    doc.OutOfElem();
    return ok;
}

// Writes the present member value of row; false when it fails the row's rule.
bool writeValue(QXBase::CXmlBase& doc, const Field& row, const Json::Value& value,
                const Field** failed) {
    switch (row.kind) {
        case Kind::kObject:
            if (!value.isObject()) break;
            doc.AddNode(elementOf(row));
            if (!writeFields(doc, value, row.children, failed)) return false;
            doc.OutOfElem();
            return true;
        case Kind::kList:
            return writeList(doc, row, value, failed);
        case Kind::kCustom:
            return row.custom->write(doc, value) == 0 || failRow(row, failed);
        default: {
            std::string text;
            if (!scalarText(row, value, &text)) break;
            addTextElement(doc, elementOf(row), text);
            return true;
        }
    }
    // The value does not fit the row's kind.
    return row.toXml == Rule::kWhenTyped || failRow(row, failed);
}

bool writeField(QXBase::CXmlBase& doc, const Json::Value& object, const Field& row,
                const Field** failed) {
    if (row.toXml == Rule::kNever) return true;
    if (row.kind == Kind::kFixedText) {
        addTextElement(doc, elementOf(row), row.fixedText != nullptr ? row.fixedText : "");
        return true;
    }
    const Json::Value* value = findMember(object, row.name);
    if (value != nullptr) return writeValue(doc, row, *value, failed);
    if (row.toXml == Rule::kDefault) writeDefaults(doc, elementOf(row), row.defaults);
    return row.toXml != Rule::kRequired || failRow(row, failed);
}

// An object or custom element was found: enter it, read its content, leave it.
bool readNested(QXBase::CXmlBase& xml, const Field& row, Json::Value* out) {
    if (!xml.IntoElem()) return row.fromXml != Rule::kRequired;
    Json::Value content(Json::objectValue);
    const bool ok = row.kind == Kind::kObject ? readFields(xml, row.children, &content)
                                              : row.custom->read(&content, xml) == 0;
    xml.OutOfElem();
    if (!ok) return false;
    (*out)[row.name] = std::move(content);
    return true;
}

bool readField(QXBase::CXmlBase& xml, const Field& row, Json::Value* out) {
    if (row.fromXml == Rule::kNever || row.kind == Kind::kFixedText || row.kind == Kind::kList) {
        return true;
    }
    if (!xml.FindElem(elementOf(row))) return row.fromXml != Rule::kRequired;
    switch (row.kind) {
        case Kind::kInt32:
        case Kind::kNumber:
            (*out)[row.name] = KVL_Atoi32(xml.GetData().c_str());
            return true;
        case Kind::kBool:
            (*out)[row.name] = xml.GetData() == "true";
            return true;
        case Kind::kObject:
        case Kind::kCustom:
            return readNested(xml, row, out);
        default:
            (*out)[row.name] = xml.GetData();
            return true;
    }
}

}  // namespace

bool writeFields(QXBase::CXmlBase& doc, const Json::Value& object, std::span<const Field> rows,
                 const Field** failed) {
    if (failed != nullptr) *failed = nullptr;
    if (!isContainer(object)) return false;
    for (const Field& row : rows) {
        if (!writeField(doc, object, row, failed)) return false;
    }
    return true;
}

bool writeItems(QXBase::CXmlBase& doc, const Json::Value& list, const char* item,
                std::span<const Field> rows, const Field** failed) {
    if (failed != nullptr) *failed = nullptr;
    if (!list.isArray()) return true;
    for (Json::ArrayIndex i = 0; i < list.size(); ++i) {
        const Json::Value* content = findMember(list[i], item);
        if (content == nullptr || !content->isObject()) return false;
        doc.AddNode(item);
        if (!writeFields(doc, *content, rows, failed)) return false;
        doc.OutOfElem();
    }
    return true;
}

bool writeObject(QXBase::CXmlBase& doc, const char* name, std::span<const Field> rows,
                 const Json::Value& value) {
    if (!value.isObject()) return false;
    doc.AddNode(name);
    const bool ok = writeFields(doc, value, rows);
    doc.OutOfElem();
    return ok;
}

void writeDefaults(QXBase::CXmlBase& doc, const char* name,
                   std::span<const DefaultElement> defaults) {
    doc.AddNode(name);
    for (const DefaultElement& element : defaults) addTextElement(doc, element.name, element.text);
    doc.OutOfElem();
}

bool readFields(QXBase::CXmlBase& xml, std::span<const Field> rows, Json::Value* out) {
    for (const Field& row : rows) {
        if (!readField(xml, row, out)) return false;
    }
    return true;
}

bool readObject(QXBase::CXmlBase& xml, std::span<const Field> rows, Json::Value* out) {
    Json::Value content(Json::objectValue);
    if (!readFields(xml, rows, &content)) return false;
    *out = std::move(content);
    return true;
}

}  // namespace QXKORVAProtocol::fields
