#include "plugin/alert/alarm_translation.h"

#include <span>

namespace QXKORVAProtocol {
namespace {

constexpr const char* kAlertRoot = "EventNotificationAlert";

enum class Kind { kString, kInteger, kNumber };

struct Field {
    const char* name;
    Kind kind;
};

// Element order of each level of the document.
constexpr Field kBasicFields[] = {
    {"channelID", Kind::kString},        {"dateTime", Kind::kString},
    {"activePostCount", Kind::kInteger}, {"eventType", Kind::kString},
    {"eventState", Kind::kString},       {"eventDescription", Kind::kString},
    {"inputIOPortID", Kind::kInteger},   {"channelName", Kind::kString},
};
constexpr Field kRegionHeadFields[] = {
    {"regionID", Kind::kString},
    {"sensitivityLevel", Kind::kInteger},
};
constexpr Field kRegionTailFields[] = {{"detectionTarget", Kind::kString}};
constexpr Field kCoordinateFields[] = {
    {"positionX", Kind::kInteger},
    {"positionY", Kind::kInteger},
};
constexpr Field kRectFields[] = {
    {"X", Kind::kNumber},
    {"Y", Kind::kNumber},
    {"width", Kind::kNumber},
    {"height", Kind::kNumber},
};
constexpr Field kAudioFields[] = {
    {"alarmType", Kind::kString},
    {"audioDecibel", Kind::kInteger},
};

// The element text of value under the rule of kind; false when the type does not fit.
bool valueText(const Json::Value& value, Kind kind, std::string* text) {
    switch (kind) {
        case Kind::kString:
            if (!value.isString()) return false;
            *text = value.asString();
            return true;
        case Kind::kInteger:
            if (!value.isInt()) return false;
            *text = std::to_string(value.asInt());
            return true;
        case Kind::kNumber:
            if (!value.isNumeric()) return false;
            *text = std::to_string(value.asDouble());  // the "%f" conversion
            return true;
    }
    return false;
}

// Writes the present members of the object parent as text elements, in table order.
bool writeFields(const Json::Value& parent, std::span<const Field> fields, QXBase::CXmlBase& doc) {
    for (const Field& field : fields) {
        if (!parent.isMember(field.name)) continue;
        std::string text;
        if (!valueText(parent[field.name], field.kind, &text)) return false;
        doc.AddNode(field.name, text);
        doc.OutOfElem();
    }
    return true;
}

// Writes the object member name of parent as an element holding fields; absent: nothing.
bool writeGroup(const Json::Value& parent, const char* name, std::span<const Field> fields,
                QXBase::CXmlBase& doc) {
    if (!parent.isMember(name)) return true;
    const Json::Value& group = parent[name];
    if (!group.isObject()) return false;
    doc.AddNode(name);
    const bool ok = writeFields(group, fields, doc);
    doc.OutOfElem();
    return ok;
}

// Writes the element name for an optional list member of parent: always when present, filled
// from the array's objects that hold itemName (written with writeItem). A list that is not an
// array gives an empty element; null elements are skipped; any other non-object fails.
template <typename WriteItem>
bool writeList(const Json::Value& parent, const char* name, const char* itemName,
               QXBase::CXmlBase& doc, WriteItem writeItem) {
    if (!parent.isMember(name)) return true;
    const Json::Value& list = parent[name];
    doc.AddNode(name);
    bool ok = true;
    if (list.isArray()) {
        for (Json::ArrayIndex i = 0; ok && i < list.size(); ++i) {
            const Json::Value& element = list[i];
            if (element.isNull()) continue;
            if (!element.isObject()) {
                ok = false;
            } else if (element.isMember(itemName)) {
                ok = writeItem(element, doc);
            }
        }
    }
    doc.OutOfElem();
    return ok;
}

bool writeCoordinates(const Json::Value& element, QXBase::CXmlBase& doc) {
    return writeGroup(element, "RegionCoordinates", kCoordinateFields, doc);
}

bool writeRegionEntry(const Json::Value& element, QXBase::CXmlBase& doc) {
    const Json::Value& entry = element["DetectionRegionEntry"];
    if (!entry.isObject()) return false;
    doc.AddNode("DetectionRegionEntry");
    const bool ok =
        writeFields(entry, kRegionHeadFields, doc) &&
        writeList(entry, "RegionCoordinatesList", "RegionCoordinates", doc, writeCoordinates) &&
        writeFields(entry, kRegionTailFields, doc) &&
        writeGroup(entry, "TargetRect", kRectFields, doc);
    doc.OutOfElem();
    return ok;
}

// The EventNotificationAlert object of root, or null when root has none.
const Json::Value* alertOf(const Json::Value& root) {
    if (!root.isObject() || !root.isMember(kAlertRoot)) return nullptr;
    const Json::Value& alert = root[kAlertRoot];
    return alert.isObject() ? &alert : nullptr;
}

}  // namespace

bool convertAlarmBasic(const Json::Value& root, QXBase::CXmlBase& doc) {
    const Json::Value* alert = alertOf(root);
    return alert != nullptr && writeFields(*alert, kBasicFields, doc);
}

bool convertDetectionRegions(const Json::Value& root, QXBase::CXmlBase& doc) {
    const Json::Value* alert = alertOf(root);
    if (alert == nullptr) return false;
    return writeList(*alert, "DetectionRegionList", "DetectionRegionEntry", doc, writeRegionEntry);
}

bool convertAudioException(const Json::Value& root, QXBase::CXmlBase& doc) {
    const Json::Value* alert = alertOf(root);
    if (alert == nullptr) return false;
    return writeGroup(*alert, "AudioExceptionDetection", kAudioFields, doc);
}

int convertAlarmToXml(const Json::Value& root, QXBase::CXmlBase& doc) {
    try {
        const bool ok = convertAlarmBasic(root, doc) && convertDetectionRegions(root, doc) &&
                        convertAudioException(root, doc);
        return ok ? 1 : 0;
    } catch (...) {
        return 0;
    }
}

bool translateAlarm(const Json::Value& root, std::string* text) {
    QXBase::CXmlBase doc;
    if (!doc.CreateRoot(kAlertRoot)) return false;
    if (convertAlarmToXml(root, doc) != 1) return false;
    *text = doc.GetChildren();
    return true;
}

}  // namespace QXKORVAProtocol
