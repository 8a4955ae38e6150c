// The streaming channels of the simulated camera: streams 01 to 03 of each video input
// (101..103, 201..203), their settings, and the checks a PUT must pass. Not thread-safe: the
// camera serialises access.
#pragma once

#include <json/json.h>

#include <map>
#include <string>

namespace korva::sim {

class CameraStreams {
  public:
    explicit CameraStreams(int inputs);

    bool has(int id) const { return m_streams.count(id) != 0; }
    // {"StreamingChannel":{...}} of one stream (must exist).
    Json::Value document(int id) const;
    // {"StreamingChannelList":[{"StreamingChannel":{...}}, ...]} in id order.
    Json::Value list() const;
    // {"StreamingChannel":{"id":..,"Video":{<option lists>}}} of one stream (must exist).
    Json::Value capabilities(int id) const;
    // Checks and applies a PUT body; "" when applied, else the device status object text.
    std::string update(int id, const std::string& body);

    int inputs() const { return m_inputs; }

  private:
    std::string check(int id, const Json::Value& channel) const;

    int m_inputs;
    std::map<int, Json::Value> m_streams;  // id -> the StreamingChannel object
};

}  // namespace korva::sim
