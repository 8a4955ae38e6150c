#include "gateway/server/metrics.h"

#include <sstream>

#include "gateway/hostlib/host_alarms.h"
#include "gateway/hostlib/host_devices.h"
#include "gateway/hostlib/host_logging.h"

namespace korva::gateway {

namespace {
constexpr auto kRelaxed = std::memory_order_relaxed;
}

void Metrics::countAnswer(int status) {
    if (status < 0 || status >= static_cast<int>(m_answersByStatus.size())) status = 0;
    m_answersByStatus[static_cast<std::size_t>(status)].fetch_add(1, kRelaxed);
}

std::uint64_t Metrics::answers(int status) const {
    if (status < 0 || status >= static_cast<int>(m_answersByStatus.size())) return 0;
    return m_answersByStatus[static_cast<std::size_t>(status)].load(kRelaxed);
}

void Metrics::observeRelayLatency(std::chrono::steady_clock::duration elapsed) {
    const double seconds = std::chrono::duration<double>(elapsed).count();
    std::size_t bucket = 0;
    while (bucket < kLatencyBounds.size() && seconds > kLatencyBounds[bucket]) ++bucket;
    m_latencyBuckets[bucket].fetch_add(1, kRelaxed);
    m_latencyCount.fetch_add(1, kRelaxed);
    const auto micros = std::chrono::duration_cast<std::chrono::microseconds>(elapsed).count();
    m_latencySumMicros.fetch_add(static_cast<std::uint64_t>(micros < 0 ? 0 : micros), kRelaxed);
}

void Metrics::countStreamPart(std::size_t bytes) {
    m_streamParts.fetch_add(1, kRelaxed);
    m_streamBytes.fetch_add(bytes, kRelaxed);
}

void Metrics::countHandshake(HandshakeOutcome outcome, bool resumed) {
    m_handshakes[static_cast<std::size_t>(outcome)].fetch_add(1, kRelaxed);
    if (resumed) m_handshakesResumed.fetch_add(1, kRelaxed);
}

void Metrics::renderHandshakes(std::ostringstream& out) const {
    const std::uint64_t done = handshakes(HandshakeOutcome::kDone);
    const std::uint64_t resumed = m_handshakesResumed.load(kRelaxed);
    out << "# HELP korva_tls_sessions_total TLS sessions opened on the HTTPS listener, new or "
           "resumed.\n"
           "# TYPE korva_tls_sessions_total counter\n"
        << "korva_tls_sessions_total{session=\"new\"} " << done - resumed << "\n"
        << "korva_tls_sessions_total{session=\"resumed\"} " << resumed << "\n";
    out << "# HELP korva_tls_handshake_failures_total TLS handshakes that failed, by reason.\n"
           "# TYPE korva_tls_handshake_failures_total counter\n";
    const std::pair<const char*, HandshakeOutcome> reasons[] = {
        {"timeout", HandshakeOutcome::kTimedOut},
        {"plaintext", HandshakeOutcome::kPlaintext},
        {"closed", HandshakeOutcome::kClosed},
        {"refused", HandshakeOutcome::kRefused}};
    for (const auto& [reason, outcome] : reasons) {
        out << "korva_tls_handshake_failures_total{reason=\"" << reason << "\"} "
            << handshakes(outcome) << "\n";
    }
}

// The device configuration bus and the log keep their own counts in the host library.
void Metrics::renderHostCounters(std::ostringstream& out) {
    const korva::host::RelayStats relays = korva::host::relayStats();
    out << "# HELP korva_relays_outstanding Relays waiting for a device's answer.\n"
           "# TYPE korva_relays_outstanding gauge\n"
        << "korva_relays_outstanding " << relays.outstanding << "\n";
    out << "# HELP korva_relays_ended_early_total Relays that ended without their device's "
           "answer, by reason (bus_full: refused).\n"
           "# TYPE korva_relays_ended_early_total counter\n";
    const std::pair<const char*, std::uint64_t> reasons[] = {{"device_bound", relays.busyDevice},
                                                             {"client_bound", relays.busyClient},
                                                             {"bus_full", relays.refusedFull},
                                                             {"client_left", relays.clientLeft},
                                                             {"timeout", relays.timedOut}};
    for (const auto& [reason, count] : reasons) {
        out << "korva_relays_ended_early_total{reason=\"" << reason << "\"} " << count << "\n";
    }
    const korva::host::LogStats log = korva::host::logStats();
    out << "# HELP korva_log_lines_dropped_total Log lines lost because the log writer was "
           "behind.\n"
           "# TYPE korva_log_lines_dropped_total counter\n"
        << "korva_log_lines_dropped_total " << log.dropped << "\n";
    out << "# HELP korva_log_lines_suppressed_total Repeated failure lines held back by the rate "
           "limit.\n"
           "# TYPE korva_log_lines_suppressed_total counter\n"
        << "korva_log_lines_suppressed_total " << log.suppressed << "\n";
}

std::string Metrics::render(std::size_t openConnections) const {
    std::ostringstream out;
    out << "# HELP korva_http_requests_total Answers sent by the KORVA listener, by HTTP status.\n"
           "# TYPE korva_http_requests_total counter\n";
    for (std::size_t status = 0; status < m_answersByStatus.size(); ++status) {
        const auto n = m_answersByStatus[status].load(kRelaxed);
        if (n != 0) out << "korva_http_requests_total{status=\"" << status << "\"} " << n << "\n";
    }
    out << "# HELP korva_relay_latency_seconds Time from request to asynchronous answer.\n"
           "# TYPE korva_relay_latency_seconds histogram\n";
    std::uint64_t cumulative = 0;
    for (std::size_t i = 0; i < kLatencyBounds.size(); ++i) {
        cumulative += m_latencyBuckets[i].load(kRelaxed);
        out << "korva_relay_latency_seconds_bucket{le=\"" << kLatencyBounds[i] << "\"} "
            << cumulative << "\n";
    }
    cumulative += m_latencyBuckets[kLatencyBounds.size()].load(kRelaxed);
    out << "korva_relay_latency_seconds_bucket{le=\"+Inf\"} " << cumulative << "\n";
    out << "korva_relay_latency_seconds_sum "
        << static_cast<double>(m_latencySumMicros.load(kRelaxed)) / 1e6 << "\n";
    out << "korva_relay_latency_seconds_count " << m_latencyCount.load(kRelaxed) << "\n";
    out << "# HELP korva_open_streams Alert streams currently open.\n"
           "# TYPE korva_open_streams gauge\n"
        << "korva_open_streams " << m_openStreams.load(kRelaxed) << "\n";
    out << "# HELP korva_open_connections Connections currently open on the KORVA listener.\n"
           "# TYPE korva_open_connections gauge\n"
        << "korva_open_connections " << openConnections << "\n";
    out << "# HELP korva_connections_refused_total KORVA connections closed at accept, by cap.\n"
           "# TYPE korva_connections_refused_total counter\n"
        << "korva_connections_refused_total{reason=\"listener-full\"} "
        << m_refusedListenerFull.load(kRelaxed) << "\n"
        << "korva_connections_refused_total{reason=\"client-full\"} "
        << m_refusedPerClient.load(kRelaxed) << "\n";
    out << "# HELP korva_stream_parts_delivered_total Alert stream parts (alarms and heartbeats) "
           "written completely.\n"
           "# TYPE korva_stream_parts_delivered_total counter\n"
        << "korva_stream_parts_delivered_total " << m_streamParts.load(kRelaxed) << "\n";
    out << "# HELP korva_stream_bytes_delivered_total Bytes of those parts.\n"
           "# TYPE korva_stream_bytes_delivered_total counter\n"
        << "korva_stream_bytes_delivered_total " << m_streamBytes.load(kRelaxed) << "\n";
    out << "# HELP korva_alarms_published_total Alarms put on the alarm bus by the gateway.\n"
           "# TYPE korva_alarms_published_total counter\n"
        << "korva_alarms_published_total " << m_alarmsPublished.load(kRelaxed) << "\n";
    out << "# HELP korva_alarms_delivered_total Alarms the alarm bus handed to a subscription "
           "(the protocol plug-in), one per alarm and subscription.\n"
           "# TYPE korva_alarms_delivered_total counter\n"
        << "korva_alarms_delivered_total " << korva::host::alarmsDelivered() << "\n";
    out << "# HELP korva_alarms_refused_total Alarms refused because the alarm bus was full.\n"
           "# TYPE korva_alarms_refused_total counter\n"
        << "korva_alarms_refused_total " << m_alarmsRefused.load(kRelaxed) << "\n";
    renderHandshakes(out);
    renderHostCounters(out);
    return out.str();
}

}  // namespace korva::gateway
