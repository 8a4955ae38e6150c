// Translation of the alarm bus's JSON alarms into EventNotificationAlert XML documents.
//
// Input: a JSON root object holding the object "EventNotificationAlert". Output: elements added
// under the current element of doc (the EventNotificationAlert root), each only when its member
// is present, in a fixed order. Value rules: strings are copied; integers must be whole JSON
// numbers within the signed 32-bit range and are written in decimal; the four TargetRect members
// accept any JSON number and are written with "%f". A present member of the wrong type fails
// the whole translation; a null element of a list is skipped. "devIndex" is never written.
// Thread safety: pure functions of their arguments.
#pragma once

#include <json/value.h>

#include <string>

#include "host/xml_base.h"

namespace QXKORVAProtocol {

// Runs convertAlarmBasic, convertDetectionRegions and convertAudioException in that order and
// stops at the first failure. 1 on success, 0 on failure (an exception counts as failure).
int convertAlarmToXml(const Json::Value& root, QXBase::CXmlBase& doc);

// channelID, dateTime, activePostCount, eventType, eventState, eventDescription, inputIOPortID,
// channelName. Fails when EventNotificationAlert is missing or not an object.
bool convertAlarmBasic(const Json::Value& root, QXBase::CXmlBase& doc);
// DetectionRegionList with one DetectionRegionEntry per array element that has one.
bool convertDetectionRegions(const Json::Value& root, QXBase::CXmlBase& doc);
// AudioExceptionDetection with alarmType and audioDecibel.
bool convertAudioException(const Json::Value& root, QXBase::CXmlBase& doc);

// The whole document text of an alarm: a new document with the root EventNotificationAlert,
// convertAlarmToXml, then GetChildren. False (text untouched) when the translation fails.
bool translateAlarm(const Json::Value& root, std::string* text);

}  // namespace QXKORVAProtocol
