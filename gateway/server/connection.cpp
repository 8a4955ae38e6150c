#include "gateway/server/connection.h"

#include <boost/asio/dispatch.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/string.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/read.hpp>
#include <cassert>
#include <string_view>

#include "gateway/hostlib/host_logging.h"
#include "gateway/hostlib/log_rate_limiter.h"
#include "gateway/server/connection_registry.h"
#include "gateway/server/http_answer.h"
#include "gateway/server/json_error.h"
#include "gateway/server/metrics.h"
#include "gateway/server/request_check.h"
#include "host/qx_log.h"

namespace korva::gateway {

namespace http = boost::beast::http;
using boost::beast::error_code;

namespace {

thread_local bool tlsIoThread = false;

// Bytes read at a time outside the HTTP parser (first bytes of a request, the watch read).
constexpr std::size_t kReadChunk = 4096;
// How long a closing connection discards what the peer still sends.
constexpr std::chrono::seconds kLinger{2};
// When the request deadline's cancel did not end the read, the stream's own expiry this much
// later closes the connection.
constexpr std::chrono::seconds kDeadlineGrace{2};

std::string addressText(const net::ip::address& address) {
    return address.is_v6() ? "[" + address.to_string() + "]" : address.to_string();
}

using korva::host::detail::LogRateLimiter;

// Failed handshakes are logged at level 3, at most as often as a repeated failure line.
LogRateLimiter& handshakeLogLimiter() {
    static LogRateLimiter* limiter =
        new LogRateLimiter(korva::host::kLogCauseLinesPerSecond, std::chrono::seconds(1), 1);
    return *limiter;
}
constexpr char kHandshakeCause = 0;  // the limiter's one cause

std::string handshakeFailureText(const HandshakeResult& result) {
    switch (result.outcome) {
        case HandshakeOutcome::kTimedOut:
            return "not completed in time";
        case HandshakeOutcome::kPlaintext:
            return "plain HTTP on the TLS port (answered 400)";
        case HandshakeOutcome::kClosed:
            return "the client left (" + result.detail + ")";
        case HandshakeOutcome::kRefused:
        case HandshakeOutcome::kDone:
            break;
    }
    return result.detail;
}

std::string versionText(unsigned version) {
    return "HTTP/" + std::to_string(version / 10) + "." + std::to_string(version % 10);
}

}  // namespace

bool onIoThread() {
    return tlsIoThread;
}
void markIoThread() {
    tlsIoThread = true;
}

Connection::Connection(std::unique_ptr<Transport> transport, RequestHandler& handler,
                       const ServerLimits& limits, ConnectionRegistry& registry, Metrics& metrics,
                       const char* logTag)
    : m_transport(std::move(transport)),
      m_handler(handler),
      m_limits(limits),
      m_registry(registry),
      m_metrics(metrics),
      m_logTag(logTag),
      m_id(registry.nextId()),
      m_requestTimer(executor()),
      m_answerTimer(executor()) {
    error_code ec;
    const auto endpoint = tcp().socket().remote_endpoint(ec);
    if (!ec) {
        m_clientAddress = addressText(endpoint.address());
        m_peer = m_clientAddress + ":" + std::to_string(endpoint.port());
    }
}

Connection::~Connection() {
    if (m_streaming) m_metrics.streamClosed();
    m_registry.remove(m_id);
}

bool Connection::onStrand() {
    // The listener gives each accepted socket a strand of the I/O context.
    using Strand = net::strand<net::io_context::executor_type>;
    const auto current = executor();
    const Strand* strand = current.target<Strand>();
    return strand != nullptr && strand->running_in_this_thread();
}

void Connection::start() {
    net::dispatch(executor(), [self = shared_from_this()] { self->openSession(); });
}

void Connection::openSession() {
    if (closed()) return;
    if (!m_transport->secure()) return readRequest();
    // The handshake gets the time a request gets; a client that never completes it costs a
    // registry slot for that long and nothing else.
    setPhase(Phase::kHandshaking);
    tcp().expires_after(m_limits.idleTimeout);
    m_transport->handshake(
        [self = shared_from_this()](const HandshakeResult& result) { self->onHandshake(result); });
}

void Connection::onHandshake(const HandshakeResult& result) {
    m_metrics.countHandshake(result.outcome, result.resumed);
    if (result.outcome == HandshakeOutcome::kDone) return readRequest();
    const auto verdict =
        handshakeLogLimiter().admit(&kHandshakeCause, LogRateLimiter::Clock::now());
    if (!closed() && verdict.pass) {
        const std::string text = handshakeFailureText(result);
        if (verdict.suppressedBefore == 0) {
            QX_Log_Print(3, m_logTag, "TLS handshake with %s failed: %s", m_peer.c_str(),
                         text.c_str());
        } else {
            QX_Log_Print(3, m_logTag, "TLS handshake with %s failed: %s (%llu more not logged)",
                         m_peer.c_str(), text.c_str(),
                         static_cast<unsigned long long>(verdict.suppressedBefore));
        }
    }
    closeNow();
}

void Connection::readRequest() {
    assert(onStrand());
    if (closed()) return;
    if (m_registry.draining()) return closeNow();
    setPhase(Phase::kReading);
    m_parser.emplace();
    m_parser->header_limit(static_cast<std::uint32_t>(m_limits.maxHeaderBytes));
    m_parser->body_limit(m_limits.maxBodyBytes);
    m_readDeadline = std::chrono::steady_clock::now() + m_limits.idleTimeout;
    ++m_readGeneration;
    m_readTimedOut = false;
    m_headRequest = false;
    if (m_buffer.size() == 0) return readFirstBytes();
    readHead();  // pipelined bytes of this request are here already
}

void Connection::readFirstBytes() {
    // Nothing of a request yet: when the stream's timeout ends this read, the connection was
    // idle and just closes.
    tcp().expires_at(m_readDeadline);
    m_transport->readSome(m_buffer.prepare(kReadChunk),
                          [self = shared_from_this()](error_code ec, std::size_t n) {
                              self->m_buffer.commit(n);
                              if (ec || self->closed()) return self->closeNow();
                              self->readHead();
                          });
}

void Connection::readHead() {
    armRequestDeadline();
    tcp().expires_at(m_readDeadline + kDeadlineGrace);
    m_transport->readHeader(
        m_buffer, *m_parser,
        [self = shared_from_this()](error_code ec, std::size_t) { self->onHeader(ec); });
}

void Connection::armRequestDeadline() {
    // Part of a request has arrived: if the rest is late, the read is cancelled (never the
    // connection closed) so that onRead can answer 408. A completion that belongs to an
    // earlier read finds another generation and does nothing.
    m_requestTimer.expires_at(m_readDeadline);
    m_requestTimer.async_wait(
        [self = shared_from_this(), generation = m_readGeneration](error_code ec) {
            if (ec || generation != self->m_readGeneration || self->closed()) return;
            self->m_readTimedOut = true;
            error_code ignored;
            self->tcp().socket().cancel(ignored);
        });
}

void Connection::onHeader(error_code ec) {
    if (ec || closed()) return onRead(ec);
    auto& head = m_parser->get();
    noteAccess(head);
    m_headRequest = head.method() == http::verb::head;
    if (const HeadRefusal refusal = checkRequestHead(head, m_limits.maxTargetBytes);
        refusal != HeadRefusal::kNone) {
        const RefusalAnswer answer = refusalAnswer(refusal);
        return refuse(answer.status, answer.text);
    }
    const std::string_view target(head.target().data(), head.target().size());
    if (target.front() != '/' && target != "*") head.target(originForm(target));
    // A client that waits for "100 Continue" before sending its body (curl does for larger
    // bodies) gets it at once; the body's size was checked against the limit with the head.
    // HTTP/1.0 knows no interim answers.
    const auto expect = head[http::field::expect];
    if (!m_parser->is_done() && head.version() >= 11 &&
        boost::beast::iequals(expect, "100-continue")) {
        static constexpr char kContinue[] = "HTTP/1.1 100 Continue\r\n\r\n";
        m_transport->writeAll(net::buffer(kContinue, sizeof kContinue - 1),
                              [self = shared_from_this()](error_code writeEc, std::size_t) {
                                  if (writeEc) return self->closeNow();
                                  self->readBody();
                              });
        return;
    }
    readBody();
}

void Connection::readBody() {
    if (closed()) return;
    m_transport->readMessage(
        m_buffer, *m_parser,
        [self = shared_from_this()](error_code ec, std::size_t) { self->onRead(ec); });
}

void Connection::onRead(error_code ec) {
    ++m_readGeneration;  // the request deadline is over for this read
    m_requestTimer.cancel();
    if (closed()) return;
    if (ec) return answerReadError(ec);

    ++m_requestSerial;
    m_answered = false;
    m_requestStart = std::chrono::steady_clock::now();
    setPhase(Phase::kProcessing);
    HttpRequest request = m_parser->release();
    m_parser.reset();
    m_keepAlive = request.keep_alive();
    // HEAD is GET without the body: handlers answer the GET, the body is dropped on the way out.
    if (m_headRequest) request.method(http::verb::get);
    handOver(std::move(request));
}

void Connection::handOver(HttpRequest&& request) {
    assert(onStrand());
    try {
        m_handler.onRequest(shared_from_this(), std::move(request));
        return;
    } catch (const std::exception& error) {
        QX_Log_Print(5, m_logTag, "request handler failed: %s", error.what());
    } catch (...) {
        QX_Log_Print(5, m_logTag, "request handler failed");
    }
    answer(500, {{"Content-Type", "application/json"}}, jsonError(500, "internal error"));
}

void Connection::answerReadError(error_code ec) {
    if (m_readTimedOut && ec == net::error::operation_aborted) {
        return refuse(408, "request not received in time");
    }
    if (ec == http::error::header_limit) {
        // A head over the limit because of its target is answered 414. The parser has the
        // target once the request line was complete; before that the line is in the buffer.
        const auto target = m_parser->get().target();
        const auto bytes = m_buffer.data();
        const bool targetTooLong =
            target.empty()
                ? requestLineTooLong(
                      std::string_view(static_cast<const char*>(bytes.data()), bytes.size()),
                      m_limits.maxTargetBytes)
                : target.size() > m_limits.maxTargetBytes;
        return targetTooLong ? refuse(414, refusalAnswer(HeadRefusal::kTargetTooLong).text)
                             : refuse(431, "request header too large");
    }
    if (ec == http::error::body_limit) return refuse(413, "request body too large");
    if (ec.category() == http::make_error_code(http::error::bad_version).category() &&
        ec != http::error::end_of_stream && ec != http::error::partial_message) {
        return refuse(400, "malformed request");
    }
    closeNow();  // the peer left between or during requests, or the stream timed out
}

void Connection::refuse(int status, const std::string& text) {
    ++m_readGeneration;  // the request deadline must not cancel the refusal's write
    m_requestTimer.cancel();
    ++m_requestSerial;
    m_answered = true;
    if (!m_accessPending) {
        m_access = AccessRecord{};
        m_access.client = m_clientAddress;
        m_access.arrival = std::chrono::system_clock::now();
        m_accessStart = std::chrono::steady_clock::now();
        m_accessPending = true;
    }
    m_metrics.countAnswer(status);
    setPhase(Phase::kWriting);
    enqueue(std::make_shared<WriteJob>(
        makeAnswer(status, {{"Content-Type", "application/json"}}, jsonError(status, text), false),
        WriteJob::After::kClose, answerExtent()));
}

void Connection::answer(int status, const HeaderList& headers, std::string body) {
    assert(onStrand());
    if (closed() || m_answered) return;
    m_answered = true;
    m_answerTimer.cancel();
    const bool keepAlive = m_keepAlive && !m_registry.draining();
    m_metrics.countAnswer(status);
    setPhase(Phase::kWriting);
    enqueue(std::make_shared<WriteJob>(
        makeAnswer(status, headers, std::move(body), keepAlive),
        keepAlive ? WriteJob::After::kEndRequest : WriteJob::After::kClose, answerExtent()));
}

void Connection::awaitAnswer() {
    if (closed() || m_answered) return;
    setPhase(Phase::kAwaitingAnswer);
    const std::uint64_t serial = m_requestSerial;
    m_answerTimer.expires_after(m_limits.asyncAnswerTimeout);
    m_answerTimer.async_wait([self = shared_from_this(), serial](error_code ec) {
        if (ec || self->m_requestSerial != serial || self->m_answered) return;
        self->answer(504, {{"Content-Type", "application/json"}},
                     jsonError(504, "no answer from the protocol plug-in"));
    });
    watchPeer();
}

void Connection::deliverAnswer(std::uint64_t serial, int status, HeaderList headers,
                               std::string body) {
    net::post(executor(), [self = shared_from_this(), serial, status, headers = std::move(headers),
                           body = std::move(body)]() mutable {
        if (self->m_requestSerial != serial || self->m_answered || self->m_streaming) return;
        self->m_metrics.observeRelayLatency(std::chrono::steady_clock::now() -
                                            self->m_requestStart);
        self->answer(status, headers, std::move(body));
    });
}

bool Connection::beginStream(std::uint64_t serial, int status, HeaderList headers) {
    std::lock_guard<std::mutex> lock(m_streamMutex);
    if (closed() || serial <= m_streamSerial) return false;
    m_streamSerial = serial;
    // Posted under m_streamMutex: every part of this request is posted after it.
    net::post(executor(),
              [self = shared_from_this(), serial, status, headers = std::move(headers)] {
                  if (self->closed() || self->m_requestSerial != serial || self->m_answered) {
                      // The request was answered meanwhile (or the connection closed): no stream.
                      std::lock_guard<std::mutex> relock(self->m_streamMutex);
                      if (self->m_streamSerial == serial) self->m_streamSerial = 0;
                      return;
                  }
                  self->m_answered = true;
                  self->m_streaming = true;
                  self->m_answerTimer.cancel();
                  self->setPhase(Phase::kStreaming);
                  self->m_metrics.countAnswer(status);
                  self->m_metrics.streamOpened();
                  self->enqueue(std::make_shared<WriteJob>(makeStreamHead(status, headers),
                                                           WriteJob::After::kNothing,
                                                           WriteJob::Extent::kHeadOnly));
                  self->watchPeer();
              });
    return true;
}

bool Connection::queueStreamPart(std::uint64_t serial, std::string bytes) {
    const std::size_t size = bytes.size();
    std::lock_guard<std::mutex> lock(m_streamMutex);
    if (closed() || m_registry.draining() || serial == 0 || m_streamSerial != serial) return false;
    if (m_queuedStreamBytes.load(std::memory_order_acquire) + size > m_limits.maxStreamQueueBytes) {
        // The reader keeps up with less than the stream carries: end the stream (the platform
        // reconnects) instead of growing or dropping parts of a stream that stays open.
        m_streamSerial = kStreamEnded;
        net::post(executor(), [self = shared_from_this()] { self->closeNow(); });
        return false;
    }
    m_queuedStreamBytes.fetch_add(size, std::memory_order_acq_rel);
    auto job =
        std::make_shared<WriteJob>(std::move(bytes), WriteJob::After::kNothing, true, serial);
    net::post(executor(), [self = shared_from_this(), job] { self->enqueue(job); });
    return true;
}

void Connection::endStream(std::uint64_t serial) {
    std::lock_guard<std::mutex> lock(m_streamMutex);
    if (serial == 0 || m_streamSerial != serial) return;
    m_streamSerial = kStreamEnded;
    // After the parts accepted so far: they were posted before this, under the same lock.
    net::post(executor(), [self = shared_from_this(), serial] {
        if (!self->m_streaming || self->m_requestSerial != serial) return;
        self->enqueue(
            std::make_shared<WriteJob>(std::string(), WriteJob::After::kEndStream, false));
    });
}

void Connection::close() {
    net::post(executor(), [self = shared_from_this()] { self->closeNow(); });
}

void Connection::enqueue(std::shared_ptr<WriteJob> job) {
    assert(onStrand());
    // A stream part goes out only on the stream of its own request, after that stream's head.
    const bool foreignPart =
        job->streamPart() && (!m_streaming || job->serial() != m_requestSerial);
    if (closed() || foreignPart) {
        if (job->streamPart()) m_queuedStreamBytes.fetch_sub(job->bytes().size());
        job->finish(WriteJob::State::kFailed);
        return;
    }
    m_queue.push_back(std::move(job));
    if (!m_writing) writeNext();
}

void Connection::writeNext() {
    assert(onStrand());
    while (!m_queue.empty()) {
        auto job = std::move(m_queue.front());
        m_queue.pop_front();
        if (!job->tryStart()) {  // cancelled by its waiter before any byte went out
            if (job->streamPart()) m_queuedStreamBytes.fetch_sub(job->bytes().size());
            continue;
        }
        m_writing = true;
        writeStep(job);
        return;
    }
    m_writing = false;
}

void Connection::writeStep(const std::shared_ptr<WriteJob>& job) {
    // Each step that makes progress restarts the stall timeout: no progress for that long and
    // the connection is closed.
    tcp().expires_after(m_limits.writeTimeout);
    const auto buffers = job->nextBuffers();
    if (buffers.empty()) {  // nothing to send although unfinished: never spin on it
        return onWritten(job, make_error_code(boost::system::errc::io_error), 0);
    }
    m_transport->writeSome(buffers, [self = shared_from_this(), job](error_code ec, std::size_t n) {
        self->onWritten(job, ec, n);
    });
}

void Connection::onWritten(const std::shared_ptr<WriteJob>& job, error_code ec, std::size_t n) {
    job->consume(n);
    if (ec || closed()) {
        m_writing = false;
        // A failed answer is logged with its status and the bytes that went out; other raw
        // bytes (a 100 Continue) carry no answer: closeNow logs the request as left (499).
        if (job->streamPart()) {
            m_queuedStreamBytes.fetch_sub(job->bytes().size());
        } else if (job->isAnswer()) {
            logAccess(job->status(), job->written());
        }
        job->finish(WriteJob::State::kFailed);
        return closeNow();
    }
    if (!job->complete()) return writeStep(job);
    m_writing = false;
    if (job->streamPart()) {
        m_queuedStreamBytes.fetch_sub(job->bytes().size());
        m_metrics.countStreamPart(job->bytes().size());
    } else if (job->isAnswer()) {
        logAccess(job->status(), job->written());  // an answer or a stream's head
    }
    job->finish(WriteJob::State::kDone);
    afterJob(job);
    if (!closed() && !m_writing) writeNext();
}

void Connection::afterJob(const std::shared_ptr<WriteJob>& job) {
    switch (job->after()) {
        case WriteJob::After::kNothing:
            // The head of a stream that answers HEAD: nothing may follow it.
            if (m_headRequest && !job->streamPart()) closeNow();
            break;
        case WriteJob::After::kEndRequest:
            endRequest();
            nextRequest();
            break;
        case WriteJob::After::kClose:
            lingerClose();
            break;
        case WriteJob::After::kEndStream:
            closeNow();
            break;
    }
}

void Connection::nextRequest() {
    if (m_watching) return stopWatch(AfterWatch::kReadRequest);
    readRequest();
}

void Connection::lingerClose() {
    // End sending, then discard what the peer still sends for a moment, so that the answer is
    // not destroyed by a reset when unread request bytes remain (oversized heads and bodies).
    if (closed()) return;
    endRequest();
    m_lingering = true;
    m_readDeadline = std::chrono::steady_clock::now() + kLinger;
    if (m_watching) return stopWatch(AfterWatch::kLinger);
    lingerSend();
}

void Connection::lingerSend() {
    // The end of sending first (TLS: close_notify), under the linger deadline.
    tcp().expires_at(m_readDeadline);
    m_transport->shutdownSend([self = shared_from_this()] {
        if (!self->closed()) self->drainPeer();
    });
}

void Connection::drainPeer() {
    tcp().expires_at(m_readDeadline);
    m_transport->readSome(m_buffer.prepare(kReadChunk),
                          [self = shared_from_this()](error_code ec, std::size_t) {
                              if (ec) return self->closeNow();  // peer done, or timeout
                              self->drainPeer();
                          });
}

void Connection::endRequest() {
    if (auto cleanup = std::move(m_requestCleanup)) {
        m_requestCleanup = nullptr;
        cleanup();
    }
}

void Connection::watchPeer() {
    // While a request awaits its answer, or a stream runs, one read stays open without a
    // timeout: EOF or a reset means the client has gone and closes the connection at once.
    // Bytes of pipelined requests are kept for later, up to maxHeaderBytes (then the read
    // pauses until the answer is out); a stream client's bytes are discarded.
    if (m_watching || closed() || m_lingering) return;
    if (!m_streaming && m_buffer.size() >= m_limits.maxHeaderBytes) return;
    m_watching = true;
    m_afterWatch = AfterWatch::kNothing;
    tcp().expires_never();  // a pending write keeps its own expiry
    m_transport->readSome(
        m_buffer.prepare(kReadChunk),
        [self = shared_from_this()](error_code ec, std::size_t n) { self->onWatch(ec, n); });
}

void Connection::onWatch(error_code ec, std::size_t n) {
    m_watching = false;
    if (!m_streaming) m_buffer.commit(n);
    if (closed()) return;
    const AfterWatch then = m_afterWatch;
    m_afterWatch = AfterWatch::kNothing;
    const bool stopped = !ec || ec == net::error::operation_aborted;
    if (then == AfterWatch::kReadRequest && stopped) return readRequest();
    if (then == AfterWatch::kLinger && stopped) return lingerSend();
    if (ec) return closeNow();
    watchPeer();
}

void Connection::stopWatch(AfterWatch then) {
    // Cancelling only ends the pending watch read (no write is under way when this runs);
    // onWatch then goes on as `then` says.
    m_afterWatch = then;
    error_code ignored;
    tcp().socket().cancel(ignored);
}

void Connection::noteAccess(const HttpRequest::header_type& head) {
    m_access = AccessRecord{};
    m_access.client = m_clientAddress;
    m_access.method = std::string(head.method_string());
    m_access.target = std::string(head.target());
    m_access.version = versionText(head.version());
    const auto authorization = head[http::field::authorization];
    m_access.user = authorizationUser(std::string_view(authorization.data(), authorization.size()));
    m_access.arrival = std::chrono::system_clock::now();
    m_accessStart = std::chrono::steady_clock::now();
    m_accessPending = true;
}

void Connection::logAccess(int status, std::size_t bytes) {
    if (!m_accessPending) return;
    m_accessPending = false;
    m_access.status = status;
    m_access.bytes = bytes;
    m_access.duration = std::chrono::steady_clock::now() - m_accessStart;
    writeAccessLine(m_logTag, m_access);
}

void Connection::closeNow() {
    assert(onStrand());
    if (m_closedFlag.exchange(true)) return;
    setPhase(Phase::kClosed);
    m_requestTimer.cancel();
    m_answerTimer.cancel();
    error_code ignored;
    tcp().socket().shutdown(tcp::socket::shutdown_both, ignored);
    tcp().close();
    for (auto& job : m_queue) {
        if (job->streamPart()) m_queuedStreamBytes.fetch_sub(job->bytes().size());
        job->finish(WriteJob::State::kFailed);
    }
    m_queue.clear();
    // An answer still being written is logged by that write's completion, which the close ends
    // (it may already have gone out whole: the peer read it and left). Otherwise the client
    // left before its answer.
    if (!m_writing) logAccess(499, 0);
    endRequest();
    m_registry.remove(m_id);
}

}  // namespace korva::gateway
