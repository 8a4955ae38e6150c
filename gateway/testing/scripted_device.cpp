// ScriptedDevice: a device endpoint whose answers the test decides.
#include "gateway/testing/harness.h"

namespace korva::testing {
namespace {

const char* methodName(int method) {
    static const char* const kNames[] = {"GET", "PUT", "POST", "DELETE"};
    return method >= 0 && method < 4 ? kNames[method] : "OTHER";
}

}  // namespace

void ScriptedDevice::setMode(Mode mode) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_mode = mode;
}

void ScriptedDevice::setDefaultAnswer(std::string bytes) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_default = std::move(bytes);
}

void ScriptedDevice::answerFor(const std::string& methodAndPath, std::string bytes) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_answers[methodAndPath] = std::move(bytes);
}

void ScriptedDevice::handle(const korva::host::DeviceRequest& request,
                            korva::host::DeviceReply reply) {
    std::string answer;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_requests.push_back(request);
        m_changed.notify_all();
        if (m_mode == Mode::kSilent) return;
        if (m_mode == Mode::kDeferred) {
            m_pending.push_back(std::move(reply));
            return;
        }
        auto it = m_answers.find(std::string(methodName(request.method)) + " " + request.path);
        answer = it == m_answers.end() ? m_default : it->second;
    }
    reply(std::move(answer));
}

std::vector<korva::host::DeviceRequest> ScriptedDevice::requests() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_requests;
}

bool ScriptedDevice::waitForRequests(size_t n, std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, timeout, [&] { return m_requests.size() >= n; });
}

size_t ScriptedDevice::pendingCount() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    size_t count = 0;
    for (const auto& reply : m_pending) {
        if (reply) ++count;
    }
    return count;
}

bool ScriptedDevice::replyPending(size_t index, std::string bytes) {
    korva::host::DeviceReply reply;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (index >= m_pending.size() || !m_pending[index]) return false;
        reply = std::move(m_pending[index]);
        m_pending[index] = nullptr;
    }
    reply(std::move(bytes));  // outside the lock: the bus may call back into the device
    return true;
}

}  // namespace korva::testing
