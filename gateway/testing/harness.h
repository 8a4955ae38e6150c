// Test harness for plug-in tests: socket-less exchanges, a scripted device, log capture, and a
// host set up for one test. Links against the real host library (korva_host); only the socket
// and the device are replaced.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "gateway/hostlib/exchange_backend.h"
#include "gateway/hostlib/host_devices.h"
#include "host/exchange_holder.h"

namespace korva::testing {

// An exchange without a socket. Registered in the ExchangeRegistry on creation (so
// CHttpExchange(handle) finds it from any thread) and removed on destruction. Records the answer
// status, headers, whether it streams, and every byte passed to respond(). Thread-safe.
// Answers like the connection's exchange: a negative length (or null data with a length) is -1;
// without setMIME() the first respond() is the one complete answer and a second one is a fault of
// the caller: it goes to the double-answer handler (default: message and abort, which fails the
// test) and returns kLinkBroken.
class RecordingExchange : public QXHttpService::ExchangeBackend,
                          public std::enable_shared_from_this<RecordingExchange> {
  public:
    static std::shared_ptr<RecordingExchange> create(
        unsigned char method, std::string url, std::map<std::string, std::string> headers = {});
    ~RecordingExchange() override;

    // ExchangeBackend.
    std::string url() const override;
    unsigned char method() const override;
    std::string header(const std::string& name) const override;
    void setHeader(const std::string& name, const std::string& value) override;
    void setStatus(int status) override;
    void setMime(const std::string& mime) override;  // ignored: no test reads it
    void setStreamMime() override;
    int respond(const void* data, int length) override;

    // What the plug-in did. status() is 0 until set.
    int status() const;
    std::string answerHeader(const std::string& name) const;  // "" when not set
    bool hasAnswerHeader(const std::string& name) const;
    std::map<std::string, std::string> answerHeaders() const;
    bool streaming() const;                   // setMIME() without arguments was called
    std::string written() const;              // all bytes passed to respond(), concatenated
    std::vector<std::string> writes() const;  // one entry per respond() call
    int respondCount() const;

    // Waits until respond() has been called at least n times. False on timeout.
    bool waitForResponds(int n, std::chrono::milliseconds timeout = std::chrono::seconds(5));

    // Scripts the result of later respond() calls (default: the full length). The bytes are
    // recorded whatever the result.
    void setRespondResult(std::function<int(int length)> result);
    // The peer is gone: respond() returns CHttpExchange::kLinkBroken from now on.
    void breakLink();
    // Replaces the process-wide double-answer handler; returns the previous one.
    using DoubleAnswerHandler = void (*)(const std::string& url);
    static DoubleAnswerHandler setDoubleAnswerHandler(DoubleAnswerHandler handler);

  private:
    RecordingExchange(unsigned char method, std::string url,
                      std::map<std::string, std::string> headers);

    const unsigned char m_method;
    const std::string m_url;
    const std::map<std::string, std::string> m_headers;  // names lower-cased

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_status = 0;
    std::map<std::string, std::string> m_answerHeaders;
    bool m_streaming = false;
    std::vector<std::string> m_writes;
    std::function<int(int)> m_respondResult;
    bool m_broken = false;
    bool m_answered = false;  // the one complete answer was given
};

// An exchange that is not registered and ignores its answer: what the bus and the registry see
// of a client's request, with the client's address. Thread-safe (immutable).
class IdleExchange : public QXHttpService::ExchangeBackend {
  public:
    explicit IdleExchange(std::string peer = {}) : m_peer(std::move(peer)) {}
    std::string url() const override { return {}; }
    unsigned char method() const override { return QXHttpService::kMethodGet; }
    std::string header(const std::string&) const override { return {}; }
    void setHeader(const std::string&, const std::string&) override {}
    void setStatus(int) override {}
    void setMime(const std::string&) override {}
    void setStreamMime() override {}
    int respond(const void*, int length) override { return length; }
    std::string peer() const override { return m_peer; }

  private:
    const std::string m_peer;
};

// One request as the host hands it to the plug-in: the holder and its storage.
class TestRequest {
  public:
    TestRequest(unsigned char method, std::string url, std::string body = {},
                std::map<std::string, std::string> headers = {});
    // Copies share the exchange; each copy's holder points at its own body text.
    TestRequest(const TestRequest& other);
    TestRequest& operator=(const TestRequest& other);

    const ExchangeHolder& holder() const { return m_holder; }
    RecordingExchange& exchange() const { return *m_exchange; }
    int handle() const { return m_exchange->handle(); }

  private:
    std::shared_ptr<RecordingExchange> m_exchange;
    std::string m_body;
    ExchangeHolder m_holder;
};

// A device whose answers a test scripts. Every request is recorded. Thread-safe.
//   Immediate: answers at once with the scripted bytes.
//   Deferred:  keeps each reply; the test releases it with replyPending.
//   Silent:    never answers (the bus timeout applies).
class ScriptedDevice : public korva::host::DeviceEndpoint {
  public:
    enum class Mode { kImmediate, kDeferred, kSilent };

    void setMode(Mode mode);
    // Default answer bytes in Immediate mode (default: "{}").
    void setDefaultAnswer(std::string bytes);

    void handle(const korva::host::DeviceRequest& request, korva::host::DeviceReply reply) override;

    std::vector<korva::host::DeviceRequest> requests() const;
    bool waitForRequests(size_t n, std::chrono::milliseconds timeout = std::chrono::seconds(5));
    // Releases the index-th kept reply (in arrival order) with these bytes. False when there is
    // no such pending reply.
    bool replyPending(size_t index, std::string bytes);

  private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    Mode m_mode = Mode::kImmediate;
    std::string m_default = "{}";
    std::vector<korva::host::DeviceRequest> m_requests;
    std::vector<korva::host::DeviceReply> m_pending;  // released entries are empty
};

// Collects host log lines while alive (replaces the sink; restores stderr at destruction).
class LogCapture {
  public:
    explicit LogCapture(int level = 1);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    struct Line {
        int level;
        std::string module;
        std::string text;
    };
    std::vector<Line> lines() const;
    // True when some line contains the text (optionally at that level).
    bool contains(const std::string& text, int level = -1) const;
    void clear();

  private:
    struct State;
    std::shared_ptr<State> m_state;
};

// Sets up the host for one test: activated user configuration with realm "KORVA Test", the
// network configuration defaults, one account "admin"/"Admin12345" bound to device "dev-1",
// which is attached as a ScriptedDevice; digest checks run without a request scope (no peer, the
// digest uri not compared). Restores a clean host on destruction (devices cleared, alarm bus
// reset, real clock, scope-less checks refused again).
class HostFixture {
  public:
    HostFixture();
    ~HostFixture();
    HostFixture(const HostFixture&) = delete;
    HostFixture& operator=(const HostFixture&) = delete;

    static constexpr const char* kRealm = "KORVA Test";
    static constexpr const char* kUser = "admin";
    static constexpr const char* kPassword = "Admin12345";
    static constexpr const char* kDevice = "dev-1";

    std::shared_ptr<ScriptedDevice> device() const { return m_device; }

    // A valid Authorization header for the next request of this method and URI: it takes a
    // fresh nonce from the host (CreateNonce), so every call authenticates once.
    static std::string authorization(const std::string& method, const std::string& uri,
                                     const std::string& user = kUser,
                                     const std::string& password = kPassword,
                                     const std::string& realm = kRealm);

    // A request carrying a valid Authorization header for its method and URL.
    static TestRequest authorizedRequest(unsigned char method, const std::string& url,
                                         const std::string& body = {});

  private:
    std::shared_ptr<ScriptedDevice> m_device;
};

}  // namespace korva::testing
