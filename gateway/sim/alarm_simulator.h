// Simulated alarms of a device: motion with detection regions, an I/O input alarm and an audio
// exception, in turn, as the alarm bus carries them (JSON with EventNotificationAlert.devIndex).
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

#include "gateway/sim/sim_scheduler.h"

namespace korva::sim {

enum class AlarmKind { kMotion, kIoInput, kAudioException };

// The alarm document of one kind; `count` becomes activePostCount, `dateTime` its time text.
std::string makeAlarm(const std::string& devIndex, AlarmKind kind, int count,
                      const std::string& dateTime);

// Raises the alarms of one device at a fixed period on the scheduler, cycling through the
// kinds, and hands each document to `publish` (normally korva::host::publishAlarm).
class AlarmSimulator {
  public:
    using Publish = std::function<void(const std::string& devIndex, const std::string& bytes)>;

    AlarmSimulator(std::string devIndex, int intervalMs, Publish publish)
        : m_devIndex(std::move(devIndex)),
          m_intervalMs(intervalMs),
          m_publish(std::move(publish)) {}

    // Starts raising alarms (the simulator must outlive the scheduler's thread).
    void start(SimScheduler& scheduler);
    // Raises the next alarm now.
    void raise();

  private:
    const std::string m_devIndex;
    const int m_intervalMs;
    const Publish m_publish;
    std::atomic<int> m_count{0};
};

}  // namespace korva::sim
