// The built-in simulated camera: a plausible two-input camera that answers every gateway JSON
// request the protocol plug-in sends (device information, video inputs, streaming channels,
// capabilities, I/O ports and output trigger, smart capabilities, PTZ, content search), with
// device status objects for bad requests, unknown channels and unknown resources.
// Thread-safe: one mutex serialises the camera's state; answers are computed without waiting.
// The text of every answer to a GET is kept once computed (a bounded table by path) and served
// as it is until a request of another method has run, which may have changed the state; so a
// measurement of the gateway shows the plug-in and the host rather than this stand-in.
#pragma once

#include <ctime>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "gateway/hostlib/host_devices.h"
#include "gateway/sim/camera_ptz.h"
#include "gateway/sim/camera_streams.h"
#include "gateway/sim/recording_index.h"

namespace korva::sim {

class SimCamera : public korva::host::DeviceEndpoint {
  public:
    static constexpr int kInputs = 2;

    // now: the end of the recorded window (tests pass a fixed time).
    explicit SimCamera(std::string devIndex, std::time_t now = std::time(nullptr));

    void handle(const korva::host::DeviceRequest& request, korva::host::DeviceReply reply) override;

    // The answer text to one request.
    std::string answer(const korva::host::DeviceRequest& request);

    // The 36-character identifier the camera's recordings and device information carry.
    const std::string& sourceId() const { return m_sourceId; }
    // Output port state ("low" or "high").
    std::string outputState(int port) const;

  private:
    using Handler = std::string (SimCamera::*)(const std::vector<int>& numbers,
                                               const std::string& body);
    struct Route {
        int method;
        const char* pattern;
        Handler handler;
    };
    static const std::vector<Route>& routes();
    // Runs the handler under the lock; a GET answer comes from, or goes to, m_answers.
    std::string run(const Route& route, const korva::host::DeviceRequest& request,
                    const std::vector<int>& numbers);

    std::string deviceInfo(const std::vector<int>&, const std::string&);
    std::string videoInputs(const std::vector<int>&, const std::string&);
    std::string streamList(const std::vector<int>&, const std::string&);
    std::string getStream(const std::vector<int>& numbers, const std::string&);
    std::string putStream(const std::vector<int>& numbers, const std::string& body);
    std::string streamCapabilities(const std::vector<int>& numbers, const std::string&);
    std::string smartCapabilities(const std::vector<int>&, const std::string&);
    std::string ioPorts(const std::vector<int>&, const std::string&);
    std::string triggerOutput(const std::vector<int>& numbers, const std::string& body);
    std::string ptzChannels(const std::vector<int>&, const std::string&);
    std::string ptzMove(const std::vector<int>& numbers, const std::string& body);
    std::string ptzGotoPreset(const std::vector<int>& numbers, const std::string&);
    std::string ptzSetPreset(const std::vector<int>& numbers, const std::string& body);
    std::string ptzDeletePreset(const std::vector<int>& numbers, const std::string&);
    std::string ptzHome(const std::vector<int>& numbers, const std::string&);
    std::string search(const std::vector<int>&, const std::string& body);

    const std::string m_devIndex;
    const std::string m_sourceId;
    const RecordingIndex m_recordings;
    mutable std::mutex m_mutex;
    CameraStreams m_streams;
    CameraPtz m_ptz;
    std::string m_outputState = "low";
    // GET answers by path; cleared whenever another method ran. At most kCachedAnswers paths.
    static constexpr size_t kCachedAnswers = 64;
    std::unordered_map<std::string, std::string> m_answers;
};

// A stable 36-character identifier (8-4-4-4-12 hexadecimal digits) derived from text.
std::string stableUuid(const std::string& text);

}  // namespace korva::sim
