#include "gateway/server/connection.h"

#include <boost/asio/dispatch.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/string.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/read.hpp>

#include "gateway/server/connection_registry.h"
#include "gateway/server/metrics.h"

namespace korva::gateway {

namespace http = boost::beast::http;
using boost::beast::error_code;

namespace {

thread_local bool tlsIoThread = false;

std::string peerText(const tcp::socket& socket) {
    error_code ec;
    const auto endpoint = socket.remote_endpoint(ec);
    if (ec) return "";
    const auto address = endpoint.address();
    const std::string host =
        address.is_v6() ? "[" + address.to_string() + "]" : address.to_string();
    return host + ":" + std::to_string(endpoint.port());
}

}  // namespace

bool onIoThread() {
    return tlsIoThread;
}
void markIoThread() {
    tlsIoThread = true;
}

Connection::Connection(tcp::socket socket, RequestHandler& handler, const ServerLimits& limits,
                       ConnectionRegistry& registry, Metrics* metrics)
    : m_socket(std::move(socket)),
      m_handler(handler),
      m_limits(limits),
      m_registry(registry),
      m_metrics(metrics),
      m_id(registry.nextId()),
      m_peer(peerText(m_socket)),
      m_readTimer(m_socket.get_executor()),
      m_writeTimer(m_socket.get_executor()),
      m_answerTimer(m_socket.get_executor()) {}

Connection::~Connection() {
    if (m_streaming && m_metrics) m_metrics->streamClosed();
    m_registry.remove(m_id);
}

void Connection::start() {
    net::dispatch(m_socket.get_executor(), [self = shared_from_this()] { self->readRequest(); });
}

void Connection::readRequest() {
    if (closed()) return;
    if (m_registry.draining()) return closeNow();
    setPhase(Phase::kReading);
    m_parser.emplace();
    m_parser->header_limit(static_cast<std::uint32_t>(m_limits.maxHeaderBytes));
    m_parser->body_limit(m_limits.maxBodyBytes);
    m_readTimer.expires_after(m_limits.idleTimeout);
    m_readTimer.async_wait([self = shared_from_this()](error_code ec) {
        if (!ec) self->closeNow();  // idle or too slow: the read is cancelled by the close
    });
    http::async_read_header(
        m_socket, m_buffer, *m_parser,
        [self = shared_from_this()](error_code ec, std::size_t) { self->onHeader(ec); });
}

void Connection::onHeader(error_code ec) {
    if (ec || closed()) return onRead(ec);
    // A client that waits for "100 Continue" before sending its body (curl does for larger
    // bodies) gets it at once; the body's size was checked against the limit with the head.
    const auto expect = m_parser->get()[http::field::expect];
    if (!m_parser->is_done() && boost::beast::iequals(expect, "100-continue")) {
        static constexpr char kContinue[] = "HTTP/1.1 100 Continue\r\n\r\n";
        net::async_write(m_socket, net::buffer(kContinue, sizeof kContinue - 1),
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
    http::async_read(m_socket, m_buffer, *m_parser,
                     [self = shared_from_this()](error_code ec, std::size_t) { self->onRead(ec); });
}

void Connection::onRead(error_code ec) {
    m_readTimer.cancel();
    if (closed()) return;
    if (ec) return answerReadError(ec);

    ++m_requestSerial;
    m_answered = false;
    m_requestStart = std::chrono::steady_clock::now();
    setPhase(Phase::kProcessing);
    HttpRequest request = m_parser->release();
    m_parser.reset();
    m_keepAlive = request.keep_alive();
    m_handler.onRequest(shared_from_this(), std::move(request));
}

void Connection::answerReadError(error_code ec) {
    int status = 0;
    std::string text;
    if (ec == http::error::header_limit) {
        status = 431;
        text = "request header too large";
    } else if (ec == http::error::body_limit) {
        status = 413;
        text = "request body too large";
    } else if (ec == http::error::end_of_stream || ec == net::error::eof ||
               ec == net::error::operation_aborted || ec == net::error::connection_reset) {
        return closeNow();  // the peer left between or during requests
    } else if (ec.category() == http::make_error_code(http::error::bad_version).category() ||
               ec == http::error::buffer_overflow) {
        status = 400;
        text = "malformed request";
    } else {
        return closeNow();
    }
    ++m_requestSerial;
    m_answered = true;
    if (m_metrics) m_metrics->countAnswer(status);
    enqueue(std::make_shared<WriteJob>(formatAnswer(status, {{"Content-Type", "application/json"}},
                                                    jsonError(status, text), false),
                                       WriteJob::After::kClose, false));
}

void Connection::answer(int status, const HeaderList& headers, const std::string& body) {
    if (closed() || m_answered) return;
    m_answered = true;
    m_answerTimer.cancel();
    const bool keepAlive = m_keepAlive && !m_registry.draining();
    if (m_metrics) m_metrics->countAnswer(status);
    setPhase(Phase::kWriting);
    enqueue(std::make_shared<WriteJob>(
        formatAnswer(status, headers, body, keepAlive),
        keepAlive ? WriteJob::After::kEndRequest : WriteJob::After::kClose, false));
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
}

void Connection::deliverAnswer(std::uint64_t serial, int status, HeaderList headers,
                               std::string body) {
    net::post(m_socket.get_executor(), [self = shared_from_this(), serial, status,
                                        headers = std::move(headers), body = std::move(body)] {
        if (self->m_requestSerial != serial || self->m_answered || self->m_streaming) return;
        if (self->m_metrics) {
            self->m_metrics->observeRelayLatency(std::chrono::steady_clock::now() -
                                                 self->m_requestStart);
        }
        self->answer(status, headers, body);
    });
}

bool Connection::beginStream(std::uint64_t serial, int status, HeaderList headers) {
    std::lock_guard<std::mutex> lock(m_streamMutex);
    if (closed() || serial <= m_streamSerial) return false;
    m_streamSerial = serial;
    // Posted under m_streamMutex: every part of this request is posted after it.
    net::post(m_socket.get_executor(),
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
                  if (self->m_metrics) {
                      self->m_metrics->countAnswer(status);
                      self->m_metrics->streamOpened();
                  }
                  self->enqueue(std::make_shared<WriteJob>(formatStreamHead(status, headers),
                                                           WriteJob::After::kNothing, false));
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
        net::post(m_socket.get_executor(), [self = shared_from_this()] { self->closeNow(); });
        return false;
    }
    m_queuedStreamBytes.fetch_add(size, std::memory_order_acq_rel);
    auto job =
        std::make_shared<WriteJob>(std::move(bytes), WriteJob::After::kNothing, true, serial);
    net::post(m_socket.get_executor(), [self = shared_from_this(), job] { self->enqueue(job); });
    return true;
}

void Connection::endStream(std::uint64_t serial) {
    std::lock_guard<std::mutex> lock(m_streamMutex);
    if (serial == 0 || m_streamSerial != serial) return;
    m_streamSerial = kStreamEnded;
    // After the parts accepted so far: they were posted before this, under the same lock.
    net::post(m_socket.get_executor(), [self = shared_from_this(), serial] {
        if (!self->m_streaming || self->m_requestSerial != serial) return;
        self->enqueue(
            std::make_shared<WriteJob>(std::string(), WriteJob::After::kEndStream, false));
    });
}

void Connection::close() {
    net::post(m_socket.get_executor(), [self = shared_from_this()] { self->closeNow(); });
}

void Connection::enqueue(std::shared_ptr<WriteJob> job) {
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
    while (!m_queue.empty()) {
        auto job = std::move(m_queue.front());
        m_queue.pop_front();
        if (!job->tryStart()) {  // cancelled by its waiter before any byte went out
            if (job->streamPart()) m_queuedStreamBytes.fetch_sub(job->bytes().size());
            continue;
        }
        m_writing = true;
        m_writeTimer.expires_after(m_limits.writeTimeout);
        m_writeTimer.async_wait([self = shared_from_this()](error_code ec) {
            if (!ec) self->closeNow();  // the peer stopped reading
        });
        const auto& bytes = job->bytes();
        m_socket.async_write_some(
            net::buffer(bytes.data() + job->written(), bytes.size() - job->written()),
            [self = shared_from_this(), job](error_code ec, std::size_t n) {
                self->onWritten(job, ec, n);
            });
        return;
    }
    m_writing = false;
}

void Connection::onWritten(const std::shared_ptr<WriteJob>& job, error_code ec, std::size_t n) {
    job->addWritten(n);
    if (ec || closed()) {
        m_writing = false;
        if (job->streamPart()) m_queuedStreamBytes.fetch_sub(job->bytes().size());
        job->finish(WriteJob::State::kFailed);
        return closeNow();
    }
    const auto& bytes = job->bytes();
    if (job->written() < bytes.size()) {
        // Progress resets the stall timer; the rest follows.
        m_writeTimer.expires_after(m_limits.writeTimeout);
        m_writeTimer.async_wait([self = shared_from_this()](error_code timerEc) {
            if (!timerEc) self->closeNow();
        });
        m_socket.async_write_some(
            net::buffer(bytes.data() + job->written(), bytes.size() - job->written()),
            [self = shared_from_this(), job](error_code nextEc, std::size_t next) {
                self->onWritten(job, nextEc, next);
            });
        return;
    }
    m_writeTimer.cancel();
    m_writing = false;
    if (job->streamPart()) {
        m_queuedStreamBytes.fetch_sub(bytes.size());
        if (m_metrics) {
            m_metrics->countStreamPart(bytes.find("<eventType>heartBeat</eventType>") !=
                                       std::string::npos);
        }
    }
    job->finish(WriteJob::State::kDone);
    afterJob(job);
    if (!closed() && !m_writing) writeNext();
}

void Connection::afterJob(const std::shared_ptr<WriteJob>& job) {
    switch (job->after()) {
        case WriteJob::After::kNothing:
            break;
        case WriteJob::After::kEndRequest:
            endRequest();
            readRequest();
            break;
        case WriteJob::After::kClose:
            lingerClose();
            break;
        case WriteJob::After::kEndStream:
            closeNow();
            break;
    }
}

void Connection::lingerClose() {
    // Half-close, then discard what the peer still sends for a moment, so that the answer is
    // not destroyed by a reset when unread request bytes remain (oversized heads and bodies).
    if (closed()) return;
    endRequest();
    error_code ignored;
    m_socket.shutdown(tcp::socket::shutdown_send, ignored);
    m_readTimer.expires_after(std::chrono::seconds(2));
    m_readTimer.async_wait([self = shared_from_this()](error_code ec) {
        if (!ec) self->closeNow();
    });
    drainPeer();
}

void Connection::drainPeer() {
    m_socket.async_read_some(net::buffer(m_watchByte),
                             [self = shared_from_this()](error_code ec, std::size_t) {
                                 if (ec) return self->closeNow();
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
    // A stream client sends nothing more; a completed read means it has gone (or misbehaves).
    m_socket.async_read_some(net::buffer(m_watchByte),
                             [self = shared_from_this()](error_code ec, std::size_t) {
                                 if (ec) return self->closeNow();
                                 self->watchPeer();
                             });
}

void Connection::closeNow() {
    if (m_closedFlag.exchange(true)) return;
    setPhase(Phase::kClosed);
    error_code ignored;
    m_readTimer.cancel();
    m_writeTimer.cancel();
    m_answerTimer.cancel();
    m_socket.shutdown(tcp::socket::shutdown_both, ignored);
    m_socket.close(ignored);
    for (auto& job : m_queue) {
        if (job->streamPart()) m_queuedStreamBytes.fetch_sub(job->bytes().size());
        job->finish(WriteJob::State::kFailed);
    }
    m_queue.clear();
    endRequest();
    m_registry.remove(m_id);
}

}  // namespace korva::gateway
