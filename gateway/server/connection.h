// One accepted HTTP connection: reads one request at a time, hands it to the listener's
// RequestHandler, and writes answers, stream heads and stream parts from a single write queue.
//
// Bytes move through a Transport (plain TCP or TLS): the connection opens its session first (the
// TLS handshake, within idleTimeout; a failure is counted and closes the connection), then runs
// the request loop below the same way on both.
//
// Timeouts are those of the transport's tcp_stream: every read and write runs under the stream's
// expiry, and a timeout that fires after its operation completed is stale and ignored, so a
// finished timer can never close a healthy connection. The one other timer (the request
// deadline that answers 408) only cancels the read it was armed for, never closes.
//
// HTTP on the wire: request heads pass checkRequestHead (framing, Host, target) before the body
// is read; absolute-form targets reach the handler in origin form; HEAD reaches the handler as
// GET and its answer goes out without the body (Content-Length as the GET's); while a request
// awaits its answer a bounded read stays open, so a client that leaves is noticed at once (the
// request cleanup runs) and pipelined bytes are kept for the next request. No exception leaves
// the handler call: it becomes a 500. One access-log line per request (access_log.h).
//
// Ownership: shared. Pending asynchronous operations, the ConnectionRegistry (weakly) and the
// exchange of the current request (weakly) refer to it; it is destroyed once it is closed and the
// last operation has completed.
// Threads: everything runs on the connection's strand. The members marked "any thread" post to
// the strand and never block on the socket; no lock is held while writing.
#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "gateway/server/access_log.h"
#include "gateway/server/header_list.h"
#include "gateway/server/server_limits.h"
#include "gateway/server/transport.h"
#include "gateway/server/write_job.h"

namespace korva::gateway {

namespace net = boost::asio;
using tcp = net::ip::tcp;
using HttpRequest = boost::beast::http::request<boost::beast::http::string_body>;

class Connection;
class ConnectionRegistry;
class Metrics;

// What a listener does with each complete request. Called on the connection's strand; it must
// end the request with Connection::answer or hand it over with Connection::awaitAnswer.
class RequestHandler {
  public:
    virtual ~RequestHandler() = default;
    virtual void onRequest(const std::shared_ptr<Connection>& connection,
                           HttpRequest&& request) = 0;
};

// True on a thread of the gateway's I/O pool (such a thread must never wait for a write).
bool onIoThread();
void markIoThread();

class Connection : public std::enable_shared_from_this<Connection> {
  public:
    enum class Phase {
        kHandshaking,
        kReading,
        kProcessing,
        kAwaitingAnswer,
        kWriting,
        kStreaming,
        kClosed
    };

    // `logTag` names the listener in log lines (a string literal).
    Connection(std::unique_ptr<Transport> transport, RequestHandler& handler,
               const ServerLimits& limits, ConnectionRegistry& registry, Metrics& metrics,
               const char* logTag = "HTTP");
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Starts reading the first request (any thread).
    void start();

    // ---- On the strand, from RequestHandler::onRequest ----
    // Serial number of the request being handled (1 for the first on this connection).
    std::uint64_t requestSerial() const { return m_requestSerial; }
    // Ends the current request with a complete answer; the body is moved into it.
    void answer(int status, const HeaderList& headers, std::string body);
    // The answer comes later through deliverAnswer / beginStream.
    void awaitAnswer();
    // Runs once when the current request ends (answer written, or connection closed).
    void setRequestCleanup(std::function<void()> cleanup) { m_requestCleanup = std::move(cleanup); }

    // ---- Any thread ----
    // The asynchronous answer of request `serial`; ignored when that request is no longer
    // current or already answered.
    void deliverAnswer(std::uint64_t serial, int status, HeaderList headers, std::string body);
    // Turns request `serial` into a stream: queues the head, then keeps the connection open for
    // stream parts until the peer goes, the stream is ended or the gateway closes it. False when
    // the connection is closed or already streams for a later request. The head is ordered
    // before every part of `serial`. A request that was answered meanwhile (the 504 backstop)
    // does not become a stream: its head and parts are dropped on the strand.
    bool beginStream(std::uint64_t serial, int status, HeaderList headers);
    // Queues the bytes of one stream part of request `serial`; never blocks. True when the part
    // was accepted into the connection's bounded queue. False (the link counts as broken) when
    // the connection is closed or draining, or `serial` is not its current stream. A part that
    // would take the queued stream bytes past ServerLimits::maxStreamQueueBytes is refused and
    // the connection is closed: the stream ends rather than lose parts while it stays open.
    bool queueStreamPart(std::uint64_t serial, std::string bytes);
    // The stream of request `serial` has ended on the writer's side: no part is accepted any
    // more, and the connection closes once the parts accepted before have been written (or
    // the write timeout gives up on the reader). Ignored for any other request.
    void endStream(std::uint64_t serial);
    // Stream bytes accepted and not yet written or dropped.
    std::size_t queuedStreamBytes() const {
        return m_queuedStreamBytes.load(std::memory_order_acquire);
    }
    // Closes the socket and fails queued writes.
    void close();

    // On the strand: the current request arrived as HEAD (it is handed over as GET).
    bool headRequest() const { return m_headRequest; }
    bool closed() const { return m_closedFlag.load(std::memory_order_acquire); }
    Phase phase() const { return m_phase.load(std::memory_order_acquire); }
    std::uint64_t id() const { return m_id; }
    const std::string& peer() const { return m_peer; }
    // The peer's address without the port ("" when it could not be read).
    const std::string& clientAddress() const { return m_clientAddress; }
    const ServerLimits& limits() const { return m_limits; }
    Metrics& metrics() const { return m_metrics; }
    std::chrono::steady_clock::time_point requestStart() const { return m_requestStart; }

  private:
    // What the watch read does once it completes after it was cancelled on purpose.
    enum class AfterWatch { kNothing, kReadRequest, kLinger };

    void openSession();
    void onHandshake(const HandshakeResult& result);
    void readRequest();
    void readFirstBytes();
    void readHead();
    void onHeader(boost::beast::error_code ec);
    void readBody();
    void onRead(boost::beast::error_code ec);
    void handOver(HttpRequest&& request);
    void refuse(int status, const std::string& text);
    void answerReadError(boost::beast::error_code ec);
    void armRequestDeadline();
    void enqueue(std::shared_ptr<WriteJob> job);
    void writeNext();
    void writeStep(const std::shared_ptr<WriteJob>& job);
    void onWritten(const std::shared_ptr<WriteJob>& job, boost::beast::error_code ec,
                   std::size_t n);
    void afterJob(const std::shared_ptr<WriteJob>& job);
    void endRequest();
    void nextRequest();
    void watchPeer();
    void onWatch(boost::beast::error_code ec, std::size_t n);
    void stopWatch(AfterWatch then);
    void lingerClose();
    void lingerSend();
    void drainPeer();
    void closeNow();
    void noteAccess(const HttpRequest::header_type& head);
    void logAccess(int status, std::size_t bytes);
    void setPhase(Phase phase) { m_phase.store(phase, std::memory_order_release); }
    // How much of the current request's answer goes out: the head alone for HEAD.
    WriteJob::Extent answerExtent() const {
        return m_headRequest ? WriteJob::Extent::kHeadOnly : WriteJob::Extent::kWhole;
    }
    // True on the connection's strand; the strand-only members assert it (debug builds).
    bool onStrand();

    boost::beast::tcp_stream& tcp() { return m_transport->tcp(); }
    // The connection's strand: every handler of this connection runs there.
    boost::beast::tcp_stream::executor_type executor() { return tcp().get_executor(); }

    const std::unique_ptr<Transport> m_transport;
    RequestHandler& m_handler;
    const ServerLimits& m_limits;
    ConnectionRegistry& m_registry;
    Metrics& m_metrics;
    const char* const m_logTag;
    const std::uint64_t m_id;
    std::string m_peer;
    std::string m_clientAddress;

    // Request bytes received and not yet parsed (pipelined requests included).
    boost::beast::flat_buffer m_buffer;
    std::optional<RequestParser> m_parser;
    // The whole request (first byte awaited to last body byte) must arrive before this.
    std::chrono::steady_clock::time_point m_readDeadline;
    // Cancels the request read at m_readDeadline once part of a request has arrived (408).
    net::steady_timer m_requestTimer;
    std::uint64_t m_readGeneration = 0;  // a request-timer completion of another read is stale
    bool m_readTimedOut = false;
    // 504 backstop; its completion checks the request serial, so a stale one does nothing.
    net::steady_timer m_answerTimer;
    bool m_watching = false;  // the watch read (awaiting answer, stream) is pending
    AfterWatch m_afterWatch = AfterWatch::kNothing;
    bool m_lingering = false;

    std::uint64_t m_requestSerial = 0;
    bool m_answered = false;  // the current request has its answer queued
    bool m_keepAlive = false;
    bool m_headRequest = false;  // the current request is HEAD: answers go out without body
    std::chrono::steady_clock::time_point m_requestStart;
    std::function<void()> m_requestCleanup;
    AccessRecord m_access;
    std::chrono::steady_clock::time_point m_accessStart;
    bool m_accessPending = false;  // the current request has no access-log line yet

    std::deque<std::shared_ptr<WriteJob>> m_queue;
    bool m_writing = false;
    std::atomic<Phase> m_phase{Phase::kReading};
    std::atomic<bool> m_closedFlag{false};

    // Stream output. m_streamMutex orders the head and the parts of a stream as they are posted
    // to the strand; it is held only while checking, counting and posting, never for I/O.
    std::mutex m_streamMutex;
    // Request whose head was queued (guarded): 0 for none, kStreamEnded once its stream ended.
    static constexpr std::uint64_t kStreamEnded = ~std::uint64_t{0};
    std::uint64_t m_streamSerial = 0;
    std::atomic<std::size_t> m_queuedStreamBytes{0};
    bool m_streaming = false;  // strand: the current request's head was queued
};

}  // namespace korva::gateway
