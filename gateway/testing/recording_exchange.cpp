// RecordingExchange and TestRequest: requests and answers without a socket.
#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstdio>
#include <cstdlib>

#include "gateway/testing/harness.h"

namespace korva::testing {
namespace {

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::map<std::string, std::string> lowerCaseNames(const std::map<std::string, std::string>& in) {
    std::map<std::string, std::string> out;
    for (const auto& [name, value] : in) out[lowerCase(name)] = value;
    return out;
}

// The answer header of that name, compared without regard to case.
template <typename Map>
auto findHeader(Map& headers, const std::string& name) {
    const std::string wanted = lowerCase(name);
    return std::find_if(headers.begin(), headers.end(),
                        [&](const auto& entry) { return lowerCase(entry.first) == wanted; });
}

void abortOnDoubleAnswer(const std::string& url) {
    std::fprintf(stderr, "RecordingExchange: a second complete answer to %s\n", url.c_str());
    std::abort();
}

std::atomic<RecordingExchange::DoubleAnswerHandler> g_doubleAnswer{abortOnDoubleAnswer};

}  // namespace

RecordingExchange::DoubleAnswerHandler RecordingExchange::setDoubleAnswerHandler(
    DoubleAnswerHandler handler) {
    return g_doubleAnswer.exchange(handler);
}

std::shared_ptr<RecordingExchange> RecordingExchange::create(
    unsigned char method, std::string url, std::map<std::string, std::string> headers) {
    std::shared_ptr<RecordingExchange> exchange(
        new RecordingExchange(method, std::move(url), std::move(headers)));
    // Registered only now: the registry keeps a weak reference, which needs the shared owner.
    QXHttpService::ExchangeRegistry::instance().add(exchange);
    return exchange;
}

RecordingExchange::RecordingExchange(unsigned char method, std::string url,
                                     std::map<std::string, std::string> headers)
    : m_method(method), m_url(std::move(url)), m_headers(lowerCaseNames(headers)) {}

RecordingExchange::~RecordingExchange() {
    if (handle() >= 0) QXHttpService::ExchangeRegistry::instance().remove(handle());
}

std::string RecordingExchange::url() const {
    return m_url;
}
unsigned char RecordingExchange::method() const {
    return m_method;
}

std::string RecordingExchange::header(const std::string& name) const {
    auto it = m_headers.find(lowerCase(name));
    return it == m_headers.end() ? std::string() : it->second;
}

void RecordingExchange::setHeader(const std::string& name, const std::string& value) {
    std::lock_guard<std::mutex> lock(m_mutex);
    auto existing = findHeader(m_answerHeaders, name);
    if (existing != m_answerHeaders.end()) m_answerHeaders.erase(existing);
    m_answerHeaders[name] = value;
}

void RecordingExchange::setStatus(int status) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_status = status;
}

void RecordingExchange::setMime(const std::string&) {}

void RecordingExchange::setStreamMime() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_streaming = true;
}

int RecordingExchange::respond(const void* data, int length) {
    if (length < 0 || (length > 0 && data == nullptr)) return -1;
    std::function<int(int)> result;
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (!m_streaming && m_answered) {
            lock.unlock();
            g_doubleAnswer.load()(m_url);
            return QXHttpService::CHttpExchange::kLinkBroken;
        }
        m_answered = !m_streaming;
        m_writes.emplace_back(static_cast<const char*>(data), static_cast<size_t>(length));
        m_changed.notify_all();
        if (m_broken) return QXHttpService::CHttpExchange::kLinkBroken;
        if (!m_respondResult) return length;
        result = m_respondResult;
    }
    return result(length);  // outside the lock: the script may inspect the exchange
}

int RecordingExchange::status() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_status;
}

std::string RecordingExchange::answerHeader(const std::string& name) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = findHeader(m_answerHeaders, name);
    return it == m_answerHeaders.end() ? std::string() : it->second;
}

bool RecordingExchange::hasAnswerHeader(const std::string& name) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return findHeader(m_answerHeaders, name) != m_answerHeaders.end();
}

std::map<std::string, std::string> RecordingExchange::answerHeaders() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_answerHeaders;
}

bool RecordingExchange::streaming() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_streaming;
}

std::string RecordingExchange::written() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::string all;
    for (const auto& write : m_writes) all += write;
    return all;
}

std::vector<std::string> RecordingExchange::writes() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_writes;
}

int RecordingExchange::respondCount() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return static_cast<int>(m_writes.size());
}

bool RecordingExchange::waitForResponds(int n, std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, timeout,
                              [&] { return static_cast<int>(m_writes.size()) >= n; });
}

void RecordingExchange::setRespondResult(std::function<int(int length)> result) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_respondResult = std::move(result);
}

void RecordingExchange::breakLink() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_broken = true;
}

TestRequest::TestRequest(unsigned char method, std::string url, std::string body,
                         std::map<std::string, std::string> headers)
    : m_exchange(RecordingExchange::create(method, std::move(url), std::move(headers))),
      m_body(std::move(body)) {
    m_holder.exchange = std::make_shared<QXHttpService::CHttpExchange>(m_exchange);
    m_holder.body = m_body.c_str();
}

TestRequest::TestRequest(const TestRequest& other)
    : m_exchange(other.m_exchange), m_body(other.m_body), m_holder(other.m_holder) {
    m_holder.body = m_body.c_str();
}

TestRequest& TestRequest::operator=(const TestRequest& other) {
    if (this != &other) {
        m_exchange = other.m_exchange;
        m_body = other.m_body;
        m_holder.exchange = other.m_holder.exchange;
        m_holder.body = m_body.c_str();
    }
    return *this;
}

}  // namespace korva::testing
