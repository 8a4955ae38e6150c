// The recordings of the simulated camera and the content search over them. Streams 01 (main)
// and 02 (sub) of each input record continuously in one-hour segments over the `days` days that
// end at the hour the index was made; streams 03 record nothing. Playback addresses have the
// gateway form: rtsp://HOST:554/dac/camera/<36-character source id><channel>/<MAIN|SUB|SUB1>/
// playback?starttime=...&endtime=... . Immutable after construction: thread-safe.
#pragma once

#include <ctime>
#include <string>

namespace korva::sim {

class RecordingIndex {
  public:
    // sourceId: the camera's 36-character identifier; now: end of the recorded window (UTC).
    RecordingIndex(std::string sourceId, std::string host, int inputs, std::time_t now,
                   int days = 3);

    // Answers a search body ({"CMSearchDescription":{...}}): the CMSearchResult document, or a
    // device status object for a request the device refuses.
    std::string search(const std::string& body) const;

    // "YYYY-MM-DDThh:mm:ssZ"; parse accepts that form, without zone (UTC) or with ±hh:mm.
    static std::string formatTime(std::time_t t);
    static bool parseTime(const std::string& text, std::time_t* out);

    static constexpr int kDefaultMaxResults = 40;
    static constexpr int kMaxResults = 500;

  private:
    const std::string m_sourceId;
    const std::string m_host;
    const int m_inputs;
    const std::time_t m_end;    // end of the last segment (exclusive)
    const std::time_t m_begin;  // start of the first segment
};

}  // namespace korva::sim
