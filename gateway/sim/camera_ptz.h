// The pan-tilt-zoom head of the simulated camera (one PTZ channel on video input 1): position,
// last continuous move, presets and the home position. Not thread-safe: the camera serialises
// access. Every operation returns the answer text (a payload or a status object).
#pragma once

#include <json/json.h>

#include <map>
#include <string>

namespace korva::sim {

class CameraPtz {
  public:
    CameraPtz();

    bool hasChannel(int channel) const { return channel == 1; }
    Json::Value channelList() const;
    std::string move(const std::string& body);
    std::string gotoPreset(int preset);
    std::string setPreset(int preset, const std::string& body);
    std::string deletePreset(int preset);
    std::string gotoHome();

    struct Position {
        int pan = 0;
        int tilt = 0;
        int zoom = 0;
    };
    Position position() const { return m_position; }
    Position velocity() const { return m_velocity; }
    bool hasPreset(int preset) const { return m_presets.count(preset) != 0; }

  private:
    struct Preset {
        std::string name;
        bool enabled = true;
        Position position;
    };

    static constexpr int kMaxPreset = 256;
    Position m_position;
    Position m_velocity;
    std::map<int, Preset> m_presets;
};

}  // namespace korva::sim
