#include "plugin/alert/alarm_translation.h"

#include <span>

#include "plugin/pipeline/field_table.h"
#include "plugin/pipeline/json_access.h"

namespace QXKORVAProtocol {
namespace {

constexpr const char* kAlertRoot = "EventNotificationAlert";

using fields::Field;
using fields::Kind;

// Every member is optional: written when present, in this order, failing when of the wrong type.
constexpr Field optional(const char* name, Kind kind) {
    return {.name = name, .kind = kind, .toXml = fields::Rule::kOptional};
}
constexpr Field optionalGroup(const char* name, Kind kind, std::span<const Field> children,
                              const char* item = nullptr) {
    return {.name = name,
            .kind = kind,
            .toXml = fields::Rule::kOptional,
            .children = children,
            .item = item};
}

constexpr Field kBasicFields[] = {
    optional("channelID", Kind::kString),      optional("dateTime", Kind::kString),
    optional("activePostCount", Kind::kInt32), optional("eventType", Kind::kString),
    optional("eventState", Kind::kString),     optional("eventDescription", Kind::kString),
    optional("inputIOPortID", Kind::kInt32),   optional("channelName", Kind::kString),
};
constexpr Field kCoordinateFields[] = {
    optional("positionX", Kind::kInt32),
    optional("positionY", Kind::kInt32),
};
constexpr Field kRectFields[] = {
    optional("X", Kind::kNumber),
    optional("Y", Kind::kNumber),
    optional("width", Kind::kNumber),
    optional("height", Kind::kNumber),
};
constexpr Field kRegionFields[] = {
    optional("regionID", Kind::kString),
    optional("sensitivityLevel", Kind::kInt32),
    optionalGroup("RegionCoordinatesList", Kind::kList, kCoordinateFields, "RegionCoordinates"),
    optional("detectionTarget", Kind::kString),
    optionalGroup("TargetRect", Kind::kObject, kRectFields),
};
constexpr Field kRegionListField[] = {
    optionalGroup("DetectionRegionList", Kind::kList, kRegionFields, "DetectionRegionEntry"),
};
constexpr Field kAudioFields[] = {
    optional("alarmType", Kind::kString),
    optional("audioDecibel", Kind::kInt32),
};
constexpr Field kAudioField[] = {
    optionalGroup("AudioExceptionDetection", Kind::kObject, kAudioFields),
};

// The EventNotificationAlert object of root, or null when root has none.
const Json::Value* alertOf(const Json::Value& root) {
    const Json::Value* alert = findMember(root, kAlertRoot);
    return alert != nullptr && alert->isObject() ? alert : nullptr;
}

bool writeAlertFields(const Json::Value& root, std::span<const Field> rows, QXBase::CXmlBase& doc) {
    const Json::Value* alert = alertOf(root);
    return alert != nullptr && fields::writeFields(doc, *alert, rows);
}

}  // namespace

bool convertAlarmBasic(const Json::Value& root, QXBase::CXmlBase& doc) {
    return writeAlertFields(root, kBasicFields, doc);
}

bool convertDetectionRegions(const Json::Value& root, QXBase::CXmlBase& doc) {
    return writeAlertFields(root, kRegionListField, doc);
}

bool convertAudioException(const Json::Value& root, QXBase::CXmlBase& doc) {
    return writeAlertFields(root, kAudioField, doc);
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
