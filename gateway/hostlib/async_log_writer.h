// The stderr side of the host log: finished lines go into a bounded queue that one thread
// writes out, so that a logging thread (an I/O thread, a bus worker, a thread holding a lock)
// never waits for the output.
//
// Thread-safe. The writer thread starts with the first line; the destructor writes what is
// queued and joins it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>

#include "gateway/hostlib/mutex.h"

namespace korva::host::detail {

class AsyncLogWriter {
  public:
    // Writes a batch of whole lines; runs on the writer thread only.
    using Output = std::function<void(const std::string& bytes)>;

    // capacityBytes: most bytes queued at once (a batch being written is not counted).
    AsyncLogWriter(size_t capacityBytes, Output output);
    ~AsyncLogWriter();
    AsyncLogWriter(const AsyncLogWriter&) = delete;
    AsyncLogWriter& operator=(const AsyncLogWriter&) = delete;

    // Queues one line (its line feed included). False when it does not fit: the line is dropped
    // and counted.
    bool push(const std::string& line);
    // Waits until every line queued before the call has been written; false on timeout. Returns
    // at once on the writer thread.
    bool flush(std::chrono::milliseconds timeout);
    uint64_t dropped() const;

  private:
    void run();

    const size_t m_capacity;
    const Output m_output;

    mutable Mutex m_mutex;
    std::condition_variable_any m_wake;               // lines queued or stop requested
    std::condition_variable_any m_written;            // a batch was written
    std::string m_pending GUARDED_BY(m_mutex);        // whole lines, in order
    uint64_t m_queuedLines GUARDED_BY(m_mutex) = 0;   // lines accepted so far
    uint64_t m_writtenLines GUARDED_BY(m_mutex) = 0;  // lines written so far
    uint64_t m_pendingLines GUARDED_BY(m_mutex) = 0;  // lines in m_pending
    uint64_t m_dropped GUARDED_BY(m_mutex) = 0;
    bool m_stop GUARDED_BY(m_mutex) = false;
    std::thread m_thread GUARDED_BY(m_mutex);
};

}  // namespace korva::host::detail
