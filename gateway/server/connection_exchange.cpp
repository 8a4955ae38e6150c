#include "gateway/server/connection_exchange.h"

#include "gateway/hostlib/ascii_case.h"
#include "gateway/server/default_content_type.h"
#include "host/http_exchange.h"

namespace korva::gateway {

namespace http = boost::beast::http;
using QXHttpService::CHttpExchange;

namespace {
constexpr const char* kStreamMime = "multipart/mixed; boundary=boundary";
}

unsigned char ConnectionExchange::methodCode(http::verb verb) {
    switch (verb) {
        case http::verb::get:
            return QXHttpService::kMethodGet;
        case http::verb::put:
            return QXHttpService::kMethodPut;
        case http::verb::post:
            return QXHttpService::kMethodPost;
        case http::verb::delete_:
            return QXHttpService::kMethodDelete;
        default:
            return QXHttpService::kMethodOther;
    }
}

ConnectionExchange::ConnectionExchange(const std::shared_ptr<Connection>& connection,
                                       HttpRequest request, StreamTable* streams)
    : m_connection(connection),
      m_serial(connection->requestSerial()),
      m_request(std::move(request)),
      m_url(m_request.target()),
      m_method(methodCode(m_request.method())),
      m_peerAddress(connection->peer().substr(0, connection->peer().rfind(':'))),
      m_streams(streams) {}

ConnectionExchange::~ConnectionExchange() {
    finish();
}

void ConnectionExchange::finish() {
    m_finished.store(true, std::memory_order_release);
    std::shared_ptr<StreamTable::Entry> entry;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        entry = std::move(m_streamEntry);
    }
    if (entry) m_streams->close(entry);
}

std::string ConnectionExchange::header(const std::string& name) const {
    const auto it = m_request.find(name);
    return it == m_request.end() ? std::string() : std::string(it->value());
}

void ConnectionExchange::setHeader(const std::string& name, const std::string& value) {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto& [existing, existingValue] : m_headers) {
        if (equalsIgnoreCase(existing, name)) {
            existingValue = value;
            return;
        }
    }
    m_headers.emplace_back(name, value);
}

void ConnectionExchange::setStatus(int status) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_status = status;
}

void ConnectionExchange::setMime(const std::string& mime) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_mime = mime;
}

void ConnectionExchange::setStreamMime() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_stream = true;
    m_mime = kStreamMime;
}

bool ConnectionExchange::claimAnswer() {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_answered) return false;
    m_answered = true;
    return true;
}

HeaderList ConnectionExchange::answerHeaders() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return headersLocked();
}

HeaderList ConnectionExchange::headersLocked() const {
    HeaderList headers = m_headers;
    bool hasType = false;
    for (auto& [name, value] : headers) {
        if (equalsIgnoreCase(name, "Content-Type")) {
            hasType = true;
            if (m_stream) value = kStreamMime;  // the stream's framing is the gateway's
        }
    }
    if (!hasType && !m_mime.empty()) headers.emplace_back("Content-Type", m_mime);
    return headers;
}

std::shared_ptr<CHttpExchange> ConnectionExchange::pluginExchange(
    const std::shared_ptr<ConnectionExchange>& backend) {
    const std::weak_ptr<ConnectionExchange> weak = backend;
    return std::shared_ptr<CHttpExchange>(new CHttpExchange(backend), [weak](CHttpExchange* e) {
        const auto owner = weak.lock();
        delete e;
        if (owner) owner->pluginReleased();
    });
}

void ConnectionExchange::pluginReleased() noexcept {
    bool streaming = false;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        streaming = m_stream && m_answered;
    }
    if (!streaming) return;
    try {
        if (auto connection = m_connection.lock()) connection->endStream(m_serial);
    } catch (...) {
        // Posting failed for lack of memory: the stream ends when its peer goes.
    }
}

int ConnectionExchange::respond(const void* data, int length) {
    if (length < 0 || (length > 0 && data == nullptr)) return -1;
    auto connection = m_connection.lock();
    if (!connection || connection->closed() || m_finished.load(std::memory_order_acquire)) {
        return CHttpExchange::kLinkBroken;
    }
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_stream) {
        if (!m_answered) {
            // The head is queued under m_mutex: a part written by another thread at the same
            // time finds the stream begun and is queued after it.
            m_answered = true;
            if (!connection->beginStream(m_serial, m_status, headersLocked())) {
                return CHttpExchange::kLinkBroken;
            }
            if (m_streams) {
                m_streamEntry =
                    m_streams->open(connection->id(), authorizationUser(header("Authorization")),
                                    connection->clientAddress());
            }
        }
        const auto entry = m_streamEntry;
        lock.unlock();
        if (length == 0) return 0;
        std::string bytes(static_cast<const char*>(data), static_cast<std::size_t>(length));
        if (entry) StreamTable::countPart(*entry, bytes);
        return connection->queueStreamPart(m_serial, std::move(bytes)) ? length
                                                                       : CHttpExchange::kLinkBroken;
    }
    if (m_answered) return CHttpExchange::kLinkBroken;  // this request has its answer already
    m_answered = true;
    const int status = m_status;
    HeaderList headers = headersLocked();
    lock.unlock();
    std::string body(static_cast<const char*>(data), static_cast<std::size_t>(length));
    addDefaultContentType(headers, body);
    connection->deliverAnswer(m_serial, status, std::move(headers), std::move(body));
    return length;
}

}  // namespace korva::gateway
