#include "gateway/hostlib/async_log_writer.h"

namespace korva::host::detail {

AsyncLogWriter::AsyncLogWriter(size_t capacityBytes, Output output)
    : m_capacity(capacityBytes), m_output(std::move(output)) {}

AsyncLogWriter::~AsyncLogWriter() {
    std::thread thread;
    {
        MutexLock lock(m_mutex);
        m_stop = true;
        thread.swap(m_thread);
        m_wake.notify_all();
    }
    if (thread.joinable()) thread.join();  // the thread writes what is left before it leaves
}

bool AsyncLogWriter::push(const std::string& line) {
    MutexLock lock(m_mutex);
    if (m_stop || line.size() > m_capacity - m_pending.size()) {
        ++m_dropped;
        return false;
    }
    if (!m_thread.joinable()) m_thread = std::thread([this] { run(); });
    m_pending += line;
    ++m_pendingLines;
    ++m_queuedLines;
    m_wake.notify_one();
    return true;
}

bool AsyncLogWriter::flush(std::chrono::milliseconds timeout) {
    MutexLock lock(m_mutex);
    if (std::this_thread::get_id() == m_thread.get_id()) return false;
    const uint64_t target = m_queuedLines;
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (m_writtenLines < target) {
        if (m_written.wait_until(lock, deadline) == std::cv_status::timeout) break;
    }
    return m_writtenLines >= target;
}

uint64_t AsyncLogWriter::dropped() const {
    MutexLock lock(m_mutex);
    return m_dropped;
}

void AsyncLogWriter::run() {
    MutexLock lock(m_mutex);
    for (;;) {
        while (!m_stop && m_pending.empty()) m_wake.wait(lock);
        if (m_pending.empty()) return;  // stopping, and everything is written
        std::string batch;
        batch.swap(m_pending);
        const uint64_t lines = m_pendingLines;
        m_pendingLines = 0;
        lock.unlock();
        m_output(batch);
        lock.lock();
        m_writtenLines += lines;
        m_written.notify_all();
    }
}

}  // namespace korva::host::detail
