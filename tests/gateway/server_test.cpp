// The HTTP server with a scripted plug-in on real loopback sockets: what the gateway's own tests
// cannot force (answers from foreign threads, stalled readers, plug-in exceptions, stopping).
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "gateway/server/gateway_server.h"
#include "gateway/testing/harness.h"
#include "host/exchange_holder.h"
#include "host/http_exchange.h"

namespace korva::gateway {
namespace {

using QXHttpService::CHttpExchange;

// What a plug-in sees of an exchange and gets back from its answers: the same for the
// connection's exchange and for the harness's recording exchange that plug-in tests use.
struct ExchangeProbe {
    std::string url, header;
    int method = -1, badLength = 0, first = 0, second = 0;
    bool operator==(const ExchangeProbe&) const = default;
};
const ExchangeProbe kConformingProbe{
    "/conformance?q=1", "yes", QXHttpService::kMethodPut, -1, 4, CHttpExchange::kLinkBroken};

// Reads the request, then gives one complete answer (status 201, one X-Answer header, "<a/>")
// and tries a second one.
ExchangeProbe exerciseExchange(CHttpExchange& exchange) {
    ExchangeProbe probe{exchange.getUrl(), exchange.getHead("x-probe"), exchange.getMethod()};
    exchange.setHead("X-Answer", "first");
    exchange.setHead("x-answer", "second");  // replaces, whatever the case
    exchange.setStatus(201);
    probe.badLength = exchange.response("x", -1);
    probe.first = exchange.response("<a/>", 4);
    probe.second = exchange.response("<b/>", 4);
    return probe;
}

// What the scripted plug-in saw and did; reset per test.
struct Script {
    ExchangeProbe probe;
    std::atomic<int> streamHandle{-1};
    std::atomic<int> ioThreadWrite{0};
    std::promise<int> asyncResult;
    // The last request's exchange, held as a plug-in would.
    void keep(std::shared_ptr<CHttpExchange> exchange) {
        std::lock_guard<std::mutex> lock(mutex);
        keptExchange = std::move(exchange);
    }
    std::shared_ptr<CHttpExchange> kept() {
        std::lock_guard<std::mutex> lock(mutex);
        return keptExchange;
    }
    std::mutex mutex;
    std::shared_ptr<CHttpExchange> keptExchange;
    std::vector<std::thread> writers;
};
Script* script = nullptr;

const char kStreamPart[] = "--boundary\r\nContent-Length: 3\r\n\r\nabc";

// More than the sockets between server and client hold: written in many pieces.
const std::string& largeBody() {
    static const std::string body = [] {
        std::string text(8 << 20, ' ');
        for (std::size_t i = 0; i < text.size(); ++i) text[i] = static_cast<char>('a' + i % 23);
        return text;
    }();
    return body;
}

// Answers by path: the test names the behaviour in the URL.
int fakeProcess(int* handled, std::string* response, int* asyncReply,
                const ExchangeHolder& holder) {
    const std::string url = holder.exchange->getUrl();
    *handled = 1;
    if (url == "/sync") {
        *response = std::string("<a>") + (holder.body ? holder.body : "") + "</a>";
        return 201;
    }
    if (url == "/large") {
        *response = largeBody();
        return 200;
    }
    if (url == "/async") {
        *asyncReply = 1;
        const int handle = holder.exchange->getHttpHandle();
        std::thread([handle] {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            CHttpExchange exchange(handle);
            exchange.setHead("Content-Type", "application/xml");
            exchange.setStatus(202);
            const int n = exchange.response("<done/>", 7);
            const int again = exchange.response("<x/>", 4);  // one answer per request
            script->asyncResult.set_value(n == 7 && again == CHttpExchange::kLinkBroken ? 1 : 0);
        }).detach();
        return 200;
    }
    if (url == "/stream") {
        holder.exchange->setMIME();
        holder.exchange->setStatus(200);
        holder.exchange->response(nullptr, 0);
        // On an I/O thread a stream write must not wait for itself.
        script->ioThreadWrite = holder.exchange->response(kStreamPart, sizeof kStreamPart - 1);
        script->streamHandle = holder.exchange->getHttpHandle();
        script->keep(holder.exchange);
        *asyncReply = 1;
        return 200;
    }
    if (url == "/stream-race") {
        // No head first: two threads write the first parts at once.
        holder.exchange->setMIME();
        script->keep(holder.exchange);
        *asyncReply = 1;
        for (const char* part : {"[one]", "[two]"}) {
            script->writers.emplace_back(
                [exchange = holder.exchange, part] { exchange->response(part, 5); });
        }
        return 200;
    }
    if (url == "/never") {
        script->keep(holder.exchange);
        *asyncReply = 1;
        return 200;
    }
    if (url.starts_with("/conformance")) {
        script->probe = exerciseExchange(*holder.exchange);
        *asyncReply = 1;
        return 200;
    }
    if (url == "/throw") throw std::runtime_error("plug-in bug");
    *handled = 0;
    *response = "{}";
    return -1;
}

class ServerTest : public ::testing::Test {
  protected:
    void SetUp() override {
        script = &m_script;
        ServerLimits limits;
        limits.maxHeaderBytes = 2048;
        limits.maxBodyBytes = 4096;
        limits.idleTimeout = std::chrono::milliseconds(2000);
        limits.asyncAnswerTimeout = std::chrono::milliseconds(300);
        limits.maxStreamQueueBytes = 64 * 1024;
        m_server = std::make_unique<GatewayServer>(
            PluginApi{[] { return 1; }, [] { return 0; }, fakeProcess}, limits, 2);
        std::string error;
        ASSERT_TRUE(m_server->bind({"127.0.0.1", 0}, {"127.0.0.1", 0}, &error)) << error;
        m_server->start();
        m_port = static_cast<unsigned short>(
            std::stoi(m_server->korvaAddress().substr(m_server->korvaAddress().rfind(':') + 1)));
    }
    void TearDown() override {
        for (auto& writer : m_script.writers) writer.join();
        m_server->stopAccepting();
        m_server->closeConnections();
        m_script.keep(nullptr);
        m_server.reset();
        script = nullptr;
    }

    // A connected client that has sent `request`.
    int connectClient(const std::string& request = "", unsigned short port = 0) {
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port != 0 ? port : m_port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        timeval timeout{5, 0};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
        if (!request.empty()) send(fd, request);
        return fd;
    }
    static void send(int fd, const std::string& text) {
        ASSERT_EQ(::send(fd, text.data(), text.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(text.size()));
    }
    // Reads until `marker` has arrived (or the peer closes / times out).
    static std::string readUntil(int fd, const std::string& marker) {
        std::string data;
        char buffer[4096];
        while (data.find(marker) == std::string::npos) {
            const ssize_t n = recv(fd, buffer, sizeof buffer, 0);
            if (n <= 0) break;
            data.append(buffer, static_cast<std::size_t>(n));
        }
        return data;
    }

    Script m_script;
    std::unique_ptr<GatewayServer> m_server;
    unsigned short m_port = 0;
};

TEST_F(ServerTest, ClientWaitingForContinueGetsItBeforeSendingTheBody) {
    const int fd = connectClient(
        "PUT /sync HTTP/1.1\r\nHost: x\r\nExpect: 100-continue\r\nContent-Length: 2\r\n\r\n");
    EXPECT_EQ(readUntil(fd, "\r\n\r\n"), "HTTP/1.1 100 Continue\r\n\r\n");
    send(fd, "ok");
    const std::string answer = readUntil(fd, "</a>");
    EXPECT_EQ(answer.rfind("HTTP/1.1 201 ", 0), 0u) << answer;
    EXPECT_NE(answer.find("<a>ok</a>"), std::string::npos) << answer;
    close(fd);
}

TEST_F(ServerTest, RecordingExchangeAnswersLikeTheConnectionsExchange) {
    const int fd = connectClient(
        "PUT /conformance?q=1 HTTP/1.1\r\nHost: x\r\nX-Probe: yes\r\nContent-Length: 0\r\n\r\n");
    const std::string wire = readUntil(fd, "<a/>");
    close(fd);
    EXPECT_EQ(m_script.probe, kConformingProbe);
    EXPECT_EQ(wire.rfind("HTTP/1.1 201 ", 0), 0u) << wire;
    std::string lower = wire;
    std::transform(lower.begin(), lower.end(), lower.begin(), ::tolower);
    EXPECT_NE(lower.find("\r\nx-answer: second\r\n"), std::string::npos) << wire;
    EXPECT_EQ(wire.find("first"), std::string::npos) << wire;
    EXPECT_EQ(wire.substr(wire.find("\r\n\r\n") + 4), "<a/>");

    static int doubleAnswers = 0;  // the recording exchange reports the second answer
    const auto previous = testing::RecordingExchange::setDoubleAnswerHandler(
        [](const std::string&) { ++doubleAnswers; });
    const testing::TestRequest request(QXHttpService::kMethodPut, "/conformance?q=1", "",
                                       {{"X-Probe", "yes"}});
    EXPECT_EQ(exerciseExchange(*request.holder().exchange), kConformingProbe);
    testing::RecordingExchange::setDoubleAnswerHandler(previous);
    EXPECT_EQ(doubleAnswers, 1);
    EXPECT_EQ(request.exchange().status(), 201);
    EXPECT_EQ(request.exchange().answerHeaders().size(), 1u);
    EXPECT_EQ(request.exchange().answerHeader("X-Answer"), "second");
    EXPECT_EQ(request.exchange().written(), "<a/>");
}

TEST_F(ServerTest, LargeAnswerReachesASlowReaderWholeAndItsHeadAloneAnswersHead) {
    const int fd = connectClient(
        "GET /large HTTP/1.1\r\nHost: x\r\n\r\nHEAD /large HTTP/1.1\r\nHost: x\r\n\r\n"
        "GET /sync HTTP/1.1\r\nHost: x\r\n\r\n");
    std::this_thread::sleep_for(std::chrono::milliseconds(200));  // the gateway's writes stall
    const std::string head = "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nContent-Length: " +
                             std::to_string(largeBody().size()) +
                             "\r\nConnection: keep-alive\r\n\r\n";
    const std::string expected = head + largeBody() + head +
                                 "HTTP/1.1 201 Created\r\nContent-Type: application/xml\r\n"
                                 "Content-Length: 7\r\nConnection: keep-alive\r\n\r\n<a></a>";
    std::string wire;
    std::vector<char> buffer(1 << 16);
    while (wire.size() < expected.size()) {
        const ssize_t n = recv(fd, buffer.data(), buffer.size(), 0);
        if (n <= 0) break;
        wire.append(buffer.data(), static_cast<std::size_t>(n));
    }
    close(fd);
    EXPECT_TRUE(wire == expected) << wire.size() << " bytes of " << expected.size() << ": "
                                  << wire.substr(0, 120);
}

TEST_F(ServerTest, AsynchronousAnswerFromAnotherThreadIsOneCompleteAnswer) {
    const int fd = connectClient("GET /async HTTP/1.1\r\nHost: x\r\n\r\n");
    const std::string answer = readUntil(fd, "<done/>");
    EXPECT_EQ(answer.rfind("HTTP/1.1 202 Accepted\r\n", 0), 0u) << answer;
    EXPECT_NE(answer.find("Content-Length: 7\r\n"), std::string::npos);
    EXPECT_EQ(m_script.asyncResult.get_future().get(), 1);
    close(fd);
}

TEST_F(ServerTest, StreamWritesAreQueuedAtOnceUntilThePlugInLetsGo) {
    const int fd = connectClient("GET /stream HTTP/1.1\r\nHost: x\r\n\r\n");
    const std::string head = readUntil(fd, "abc");
    EXPECT_EQ(head.rfind("HTTP/1.1 200 OK\r\n", 0), 0u) << head;
    EXPECT_NE(head.find("Content-Type: multipart/mixed; boundary=boundary\r\n"), std::string::npos);
    EXPECT_NE(head.find("Connection: close\r\n"), std::string::npos);
    // The first part follows the head directly.
    EXPECT_NE(head.find("\r\n\r\n" + std::string(kStreamPart)), std::string::npos) << head;
    EXPECT_EQ(m_script.ioThreadWrite.load(), static_cast<int>(sizeof kStreamPart - 1));

    CHttpExchange exchange(m_script.streamHandle.load());
    EXPECT_EQ(exchange.response("part-2", 6), 6);
    EXPECT_EQ(readUntil(fd, "part-2"), "part-2");
    EXPECT_EQ(m_server->metrics().openStreams(), 1);
    // The plug-in lets go of the stream's exchange: the stream has ended, the connection closes.
    m_script.keep(nullptr);
    char byte = 0;
    EXPECT_EQ(recv(fd, &byte, 1, 0), 0);
    EXPECT_EQ(exchange.response("more", 4), CHttpExchange::kLinkBroken);
    for (int i = 0; i < 200 && m_server->metrics().openStreams() != 0; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_EQ(m_server->metrics().openStreams(), 0);
    close(fd);
}

// Every write returns at once; the bounded queue of a client that reads nothing ends its stream.
TEST_F(ServerTest, StreamToAClientThatDoesNotReadEndsAtTheQueueBound) {
    const int fd = connectClient();
    int small = 4096;
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
    send(fd, "GET /stream HTTP/1.1\r\nHost: x\r\n\r\n");
    readUntil(fd, "abc");
    CHttpExchange exchange(m_script.streamHandle.load());
    const std::string block(4096, 'x');
    int result = 0;
    int accepted = 0;
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 20000 && result != CHttpExchange::kLinkBroken; ++i) {
        result = exchange.response(block.data(), static_cast<int>(block.size()));
        if (result == static_cast<int>(block.size())) ++accepted;
    }
    EXPECT_EQ(result, CHttpExchange::kLinkBroken);
    EXPECT_GE(accepted, 15);  // about the queue's own 64 KiB at least
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    EXPECT_EQ(exchange.response("x", 1), CHttpExchange::kLinkBroken);
    close(fd);
}

TEST_F(ServerTest, StreamPartsFollowTheirHeadAndNeverOutliveTheirRequest) {
    for (int round = 0; round < 10; ++round) {
        const int fd = connectClient("GET /stream-race HTTP/1.1\r\nHost: x\r\n\r\n");
        std::string data = readUntil(fd, "]");
        if (data.find("[one]") == std::string::npos || data.find("[two]") == std::string::npos) {
            data += readUntil(fd, "]");
        }
        for (auto& writer : m_script.writers) writer.join();
        m_script.writers.clear();
        EXPECT_EQ(data.rfind("HTTP/1.1 200 OK\r\n", 0), 0u) << data;
        const auto body = data.find("\r\n\r\n") + 4;
        EXPECT_TRUE(data.substr(body) == "[one][two]" || data.substr(body) == "[two][one]") << data;
        close(fd);
    }
    // A request answered by the gateway's own backstop (504) is over: its exchange can neither
    // start a stream nor write into the next request's answer on the same connection.
    const int fd = connectClient("GET /never HTTP/1.1\r\nHost: x\r\n\r\n");
    EXPECT_EQ(readUntil(fd, "}\n").rfind("HTTP/1.1 504 ", 0), 0u);
    const auto answered = m_script.kept();
    send(fd, "GET /never HTTP/1.1\r\nHost: x\r\n\r\n");
    for (int i = 0; i < 200 && m_script.kept() == answered; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    const auto late = m_script.kept();
    ASSERT_NE(late, answered);
    answered->setMIME();
    EXPECT_EQ(answered->response(nullptr, 0), CHttpExchange::kLinkBroken);
    EXPECT_EQ(answered->response("[1]", 3), CHttpExchange::kLinkBroken);
    late->setMIME();
    EXPECT_EQ(late->response(nullptr, 0), 0);  // the second request becomes the stream
    EXPECT_EQ(late->response("[2]", 3), 3);
    const std::string rest = readUntil(fd, "[2]");
    EXPECT_EQ(rest.rfind("HTTP/1.1 200 OK\r\n", 0), 0u) << rest;
    EXPECT_EQ(rest.substr(rest.find("\r\n\r\n") + 4), "[2]");
    close(fd);
}

struct ThrowingHandler : RequestHandler {
    void onRequest(const std::shared_ptr<Connection>&, HttpRequest&&) override {
        throw std::runtime_error("handler bug");
    }
};

TEST_F(ServerTest, ExceptionsOfPluginAndHandlerAreAnswered500AndServingGoesOn) {
    // The plug-in call has its own boundary; any other handler is caught by the connection.
    net::io_context io;
    ThrowingHandler handler;
    ServerLimits limits;
    ConnectionRegistry registry;
    Metrics metrics;
    auto listener = std::make_shared<Listener>(io, handler, limits, registry, metrics, "TEST");
    std::string error;
    ASSERT_TRUE(listener->bind("127.0.0.1", 0, &error)) << error;
    listener->start();
    std::thread thread([&io] { io.run(); });
    const unsigned short pluginPort = m_port;
    const auto& bound = listener->boundAddress();
    const auto handlerPort =
        static_cast<unsigned short>(std::stoi(bound.substr(bound.rfind(':') + 1)));
    for (const unsigned short port : {pluginPort, handlerPort, handlerPort}) {
        m_port = port;
        const int fd = connectClient("GET /throw HTTP/1.1\r\nHost: x\r\n\r\n");
        const std::string answer = readUntil(fd, "}\n");
        EXPECT_EQ(answer.rfind("HTTP/1.1 500 ", 0), 0u) << answer;
        close(fd);
    }
    m_port = pluginPort;
    listener->stop();
    registry.closeAll();
    io.stop();
    thread.join();
}

TEST_F(ServerTest, StoppedServerRefusesToEnterThePlugin) {
    const int fd = connectClient("GET /sync HTTP/1.1\r\nHost: x\r\n\r\n");
    readUntil(fd, "</a>");
    const int streamFd = connectClient("GET /stream HTTP/1.1\r\nHost: x\r\n\r\n");
    readUntil(streamFd, "abc");
    m_server->stopAccepting();
    // Draining: stream parts are refused at once.
    EXPECT_EQ(CHttpExchange(m_script.streamHandle.load()).response("x", 1),
              CHttpExchange::kLinkBroken);
    close(streamFd);
    send(fd, "GET /sync HTTP/1.1\r\nHost: x\r\n\r\n");
    // The plug-in is not entered any more: the idle connection is closed, or the request that
    // raced the stop is refused with 503 and the connection ends.
    const std::string answer = readUntil(fd, "</a>");
    EXPECT_EQ(answer.find("<a>"), std::string::npos) << answer;
    EXPECT_TRUE(answer.empty() || answer.rfind("HTTP/1.1 503 ", 0) == 0) << answer;
    close(fd);
}

// An event subscriber that does not keep up loses events (counted), stays subscribed, and is
// told how many it lost before the next event that reaches it.
TEST_F(ServerTest, SlowEventSubscriberLosesEventsAndIsToldHowMany) {
    const std::string admin = m_server->adminAddress();
    const auto port = static_cast<unsigned short>(std::stoi(admin.substr(admin.rfind(':') + 1)));
    m_server->adminHandler().setAccess(AdminAccess("127.0.0.1", port, ""));
    const int fd = connectClient("", port);
    int small = 4096;
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
    send(fd, "GET /admin/events HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) + "\r\n\r\n");
    std::string received = readUntil(fd, "event: hello");
    AdminEvents& events = m_server->events();
    const std::string data = "{\"pad\":\"" + std::string(60000, 'x') + "\"}";
    // The kernel's socket buffers take megabytes before the subscriber's queue fills: publish
    // large events until the queue overflows (at most 30 MB), however fast the connection
    // drains it, and quickly, so that the connection's write timeout does not end the stream
    // first on a slow build.
    std::size_t published = 0;
    while (events.droppedEvents() == 0 && published < 500) {
        events.publish("test", data);
        ++published;
    }
    const std::uint64_t dropped = events.droppedEvents();
    ASSERT_GT(dropped, 0u);
    EXPECT_EQ(events.subscribers(), 1u);

    // Every event either reaches the subscriber or is counted in a "dropped" notice that
    // precedes a later event (the queue may drain while the events are published).
    const auto tally = [&received] {
        std::size_t delivered = 0;
        std::uint64_t told = 0;
        const std::string notice = "event: dropped\ndata: {\"count\":";
        for (auto at = received.find("event: test"); at != std::string::npos;
             at = received.find("event: test", at + 1))
            ++delivered;
        for (auto at = received.find(notice); at != std::string::npos;
             at = received.find(notice, at + 1))
            told += std::stoull(received.substr(at + notice.size()));
        return std::make_pair(delivered, told);
    };
    char buffer[65536];
    while (tally().first < published - dropped) {
        const ssize_t n = recv(fd, buffer, sizeof buffer, 0);
        ASSERT_GT(n, 0) << "stream ended after " << tally().first << " events";
        received.append(buffer, static_cast<std::size_t>(n));
    }
    events.publish("last", "{}");
    received += readUntil(fd, "event: last\ndata: {}\n\n");
    EXPECT_EQ(tally(), std::make_pair(published - dropped, dropped));
    close(fd);
}

}  // namespace
}  // namespace korva::gateway
