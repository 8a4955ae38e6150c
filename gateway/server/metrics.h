// Counters of the gateway exposed as Prometheus text on the admin listener. Thread-safe: every
// counter is atomic, so request threads and alert workers never contend on a lock.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <iosfwd>
#include <string>

#include "gateway/server/handshake_outcome.h"

namespace korva::gateway {

class Metrics {
  public:
    // One answer sent (or begun, for a stream) with this HTTP status.
    void countAnswer(int status);
    // Time from the arrival of a request to the hand-over of its asynchronous answer.
    void observeRelayLatency(std::chrono::steady_clock::duration elapsed);
    void streamOpened() { m_openStreams.fetch_add(1, std::memory_order_relaxed); }
    void streamClosed() { m_openStreams.fetch_sub(1, std::memory_order_relaxed); }
    // One stream part (an alarm or a heartbeat) of this many bytes written completely.
    void countStreamPart(std::size_t bytes);
    // A KORVA connection closed at accept: its client holds maxConnectionsPerClient
    // (perClient), or the listener holds maxConnections.
    void countRefusedConnection(bool perClient) {
        (perClient ? m_refusedPerClient : m_refusedListenerFull)
            .fetch_add(1, std::memory_order_relaxed);
    }
    // One TLS session opened (resumed: from an earlier one) or failed, by outcome.
    void countHandshake(HandshakeOutcome outcome, bool resumed);
    std::uint64_t handshakes(HandshakeOutcome outcome) const {
        return m_handshakes[static_cast<std::size_t>(outcome)].load(std::memory_order_relaxed);
    }
    void countAlarmPublished() { m_alarmsPublished.fetch_add(1, std::memory_order_relaxed); }
    // One alarm the alarm bus could not take (its queue was full); its source was told so.
    void countAlarmRefused() { m_alarmsRefused.fetch_add(1, std::memory_order_relaxed); }

    std::int64_t openStreams() const { return m_openStreams.load(std::memory_order_relaxed); }
    std::uint64_t answers(int status) const;
    std::uint64_t streamPartsDelivered() const { return m_streamParts.load(); }
    std::uint64_t alarmsRefused() const { return m_alarmsRefused.load(); }

    // The exposition text; openConnections comes from the connection registry.
    std::string render(std::size_t openConnections) const;

    // Relay latency histogram bucket bounds, in seconds.
    static constexpr std::array<double, 10> kLatencyBounds = {0.001, 0.0025, 0.005, 0.01, 0.025,
                                                              0.05,  0.1,    0.5,   1.0,  10.0};

  private:
    static void renderHostCounters(std::ostringstream& out);
    void renderHandshakes(std::ostringstream& out) const;

    std::array<std::atomic<std::uint64_t>, 600> m_answersByStatus{};
    std::array<std::atomic<std::uint64_t>, kLatencyBounds.size() + 1> m_latencyBuckets{};
    std::atomic<std::uint64_t> m_latencyCount{0};
    std::atomic<std::uint64_t> m_latencySumMicros{0};
    std::atomic<std::int64_t> m_openStreams{0};
    std::atomic<std::uint64_t> m_streamParts{0};
    std::atomic<std::uint64_t> m_streamBytes{0};
    std::atomic<std::uint64_t> m_alarmsPublished{0};
    std::atomic<std::uint64_t> m_refusedPerClient{0};
    std::atomic<std::uint64_t> m_refusedListenerFull{0};
    std::atomic<std::uint64_t> m_alarmsRefused{0};
    std::array<std::atomic<std::uint64_t>, 5> m_handshakes{};  // by HandshakeOutcome
    std::atomic<std::uint64_t> m_handshakesResumed{0};
};

}  // namespace korva::gateway
