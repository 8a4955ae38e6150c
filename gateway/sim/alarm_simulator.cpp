#include "gateway/sim/alarm_simulator.h"

#include "gateway/sim/json_util.h"
#include "host/host_util.h"

namespace korva::sim {

namespace {

Json::Value motionRegions() {
    Json::Value entry(Json::objectValue);
    entry["regionID"] = "1";
    entry["sensitivityLevel"] = 60;
    Json::Value& corners = entry["RegionCoordinatesList"] = Json::Value(Json::arrayValue);
    const int points[][2] = {{120, 80}, {620, 80}, {620, 400}, {120, 400}};
    for (const auto& point : points) {
        Json::Value corner(Json::objectValue);
        corner["RegionCoordinates"]["positionX"] = point[0];
        corner["RegionCoordinates"]["positionY"] = point[1];
        corners.append(corner);
    }
    entry["detectionTarget"] = "human";
    entry["TargetRect"]["X"] = 0.25;
    entry["TargetRect"]["Y"] = 0.125;
    entry["TargetRect"]["width"] = 0.5;
    entry["TargetRect"]["height"] = 0.375;
    Json::Value list(Json::arrayValue);
    Json::Value wrapper(Json::objectValue);
    wrapper["DetectionRegionEntry"] = entry;
    list.append(wrapper);
    return list;
}

}  // namespace

std::string makeAlarm(const std::string& devIndex, AlarmKind kind, int count,
                      const std::string& dateTime) {
    Json::Value alert(Json::objectValue);
    alert["devIndex"] = devIndex;
    alert["dateTime"] = dateTime;
    alert["activePostCount"] = count;
    alert["eventState"] = "active";
    switch (kind) {
        case AlarmKind::kMotion:
            alert["channelID"] = "1";
            alert["channelName"] = "Camera 01";
            alert["eventType"] = "VMD";
            alert["eventDescription"] = "Motion alarm";
            alert["DetectionRegionList"] = motionRegions();
            break;
        case AlarmKind::kIoInput:
            alert["eventType"] = "IO";
            alert["eventDescription"] = "IO alarm";
            alert["inputIOPortID"] = 1;
            break;
        case AlarmKind::kAudioException:
            alert["channelID"] = "1";
            alert["channelName"] = "Camera 01";
            alert["eventType"] = "audioexception";
            alert["eventDescription"] = "Audio exception alarm";
            alert["AudioExceptionDetection"]["alarmType"] = "audioInputException";
            alert["AudioExceptionDetection"]["audioDecibel"] = 85;
            break;
    }
    Json::Value root(Json::objectValue);
    root["EventNotificationAlert"] = alert;
    return writeJson(root);
}

void AlarmSimulator::start(SimScheduler& scheduler) {
    if (m_intervalMs <= 0) return;
    scheduler.every(std::chrono::milliseconds(m_intervalMs), [this] { raise(); });
}

void AlarmSimulator::raise() {
    const int count = m_count.fetch_add(1) + 1;
    static constexpr AlarmKind kCycle[] = {AlarmKind::kMotion, AlarmKind::kIoInput,
                                           AlarmKind::kAudioException};
    m_publish(m_devIndex, makeAlarm(m_devIndex, kCycle[(count - 1) % 3], count, GetCurTime8601(0)));
}

}  // namespace korva::sim
