// LogCapture: host log lines collected in memory for a test.
#include "gateway/hostlib/host_logging.h"
#include "gateway/testing/harness.h"

namespace korva::testing {

struct LogCapture::State {
    mutable std::mutex mutex;
    std::vector<Line> lines;
};

LogCapture::LogCapture(int level) : m_state(std::make_shared<State>()) {
    korva::host::setLogLevel(level);
    // The sink holds the state, so a line logged while the capture ends still has a home.
    korva::host::setLogSink(
        [state = m_state](int lineLevel, const std::string& module, const std::string& text) {
            std::lock_guard<std::mutex> lock(state->mutex);
            state->lines.push_back(Line{lineLevel, module, text});
        });
}

LogCapture::~LogCapture() {
    korva::host::setLogSink(nullptr);
    korva::host::setLogLevel(3);
}

std::vector<LogCapture::Line> LogCapture::lines() const {
    std::lock_guard<std::mutex> lock(m_state->mutex);
    return m_state->lines;
}

bool LogCapture::contains(const std::string& text, int level) const {
    std::lock_guard<std::mutex> lock(m_state->mutex);
    for (const Line& line : m_state->lines) {
        if ((level < 0 || line.level == level) && line.text.find(text) != std::string::npos) {
            return true;
        }
    }
    return false;
}

void LogCapture::clear() {
    std::lock_guard<std::mutex> lock(m_state->mutex);
    m_state->lines.clear();
}

}  // namespace korva::testing
