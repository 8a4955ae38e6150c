// The HTTP server with a scripted plug-in on real loopback sockets: what the gateway's own tests
// cannot force (answers from foreign threads, stalled readers, plug-in exceptions, stopping).
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "gateway/server/gateway_server.h"
#include "host/exchange_holder.h"
#include "host/http_exchange.h"

namespace korva::gateway {
namespace {

using QXHttpService::CHttpExchange;

// What the scripted plug-in saw and did; reset per test.
struct Script {
    std::atomic<int> streamHandle{-1};
    std::atomic<int> ioThreadWrite{0};
    std::promise<int> asyncResult;
};
Script* script = nullptr;

const char kStreamPart[] = "--boundary\r\nContent-Length: 3\r\n\r\nabc";

// Answers by path: the test names the behaviour in the URL.
int fakeProcess(int* handled, std::string* response, int* asyncReply,
                const ExchangeHolder& holder) {
    const std::string url = holder.exchange->getUrl();
    *handled = 1;
    if (url == "/sync") {
        *response = std::string("<a>") + (holder.body ? holder.body : "") + "</a>";
        return 201;
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
        limits.streamWriteWait = std::chrono::milliseconds(500);
        m_server = std::make_unique<GatewayServer>(
            PluginApi{[] { return 1; }, [] { return 0; }, fakeProcess}, limits, 2);
        std::string error;
        ASSERT_TRUE(m_server->bind({"127.0.0.1", 0}, {"127.0.0.1", 0}, &error)) << error;
        m_server->start();
        m_port = static_cast<unsigned short>(
            std::stoi(m_server->korvaAddress().substr(m_server->korvaAddress().rfind(':') + 1)));
    }
    void TearDown() override {
        m_server->stopAccepting();
        m_server->closeConnections();
        m_server.reset();
        script = nullptr;
    }

    // A connected client that has sent `request`.
    int connectClient(const std::string& request = "") {
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(m_port);
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

TEST_F(ServerTest, AsynchronousAnswerFromAnotherThreadIsOneCompleteAnswer) {
    const int fd = connectClient("GET /async HTTP/1.1\r\nHost: x\r\n\r\n");
    const std::string answer = readUntil(fd, "<done/>");
    EXPECT_EQ(answer.rfind("HTTP/1.1 202 Accepted\r\n", 0), 0u) << answer;
    EXPECT_NE(answer.find("Content-Length: 7\r\n"), std::string::npos);
    EXPECT_EQ(m_script.asyncResult.get_future().get(), 1);
    close(fd);
}

TEST_F(ServerTest, StreamWritesReportCountThenLinkBroken) {
    const int fd = connectClient("GET /stream HTTP/1.1\r\nHost: x\r\n\r\n");
    const std::string head = readUntil(fd, "abc");
    EXPECT_EQ(head.rfind("HTTP/1.1 200 OK\r\n", 0), 0u) << head;
    EXPECT_NE(head.find("Content-Type: multipart/mixed; boundary=boundary\r\n"), std::string::npos);
    EXPECT_NE(head.find("Connection: close\r\n"), std::string::npos);
    // The first part follows the head directly.
    EXPECT_NE(head.find("\r\n\r\n" + std::string(kStreamPart)), std::string::npos) << head;
    EXPECT_EQ(m_script.ioThreadWrite.load(), static_cast<int>(sizeof kStreamPart - 1));

    CHttpExchange exchange(m_script.streamHandle.load());
    EXPECT_EQ(exchange.response("part-2", 6), 6);  // waited for: the bytes went out
    EXPECT_EQ(readUntil(fd, "part-2"), "part-2");
    close(fd);
    int result = 0;
    for (int i = 0; i < 100 && result != CHttpExchange::kLinkBroken; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        result = exchange.response("more", 4);
    }
    EXPECT_EQ(result, CHttpExchange::kLinkBroken);
    EXPECT_FALSE(CHttpExchange(m_script.streamHandle.load()).isAttached());
}

TEST_F(ServerTest, StreamWriteToAClientThatDoesNotReadReturnsAPartialCountInTime) {
    const int fd = connectClient();
    int small = 4096;
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
    send(fd, "GET /stream HTTP/1.1\r\nHost: x\r\n\r\n");
    readUntil(fd, "abc");
    CHttpExchange exchange(m_script.streamHandle.load());
    const std::string block(1 << 20, 'x');
    const auto start = std::chrono::steady_clock::now();
    int last = 0;
    for (int i = 0; i < 8 && (last == static_cast<int>(block.size()) || i == 0); ++i) {
        last = exchange.response(block.data(), static_cast<int>(block.size()));
    }
    EXPECT_LT(last, static_cast<int>(block.size()));
    EXPECT_NE(last, CHttpExchange::kLinkBroken);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(8));
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
    auto listener = std::make_shared<Listener>(io, handler, limits, registry, nullptr, "TEST");
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
    m_server->stopAccepting();
    send(fd, "GET /sync HTTP/1.1\r\nHost: x\r\n\r\n");
    // The plug-in is not entered any more: the idle connection is closed, or the request that
    // raced the stop is refused with 503 and the connection ends.
    const std::string answer = readUntil(fd, "</a>");
    EXPECT_EQ(answer.find("<a>"), std::string::npos) << answer;
    EXPECT_TRUE(answer.empty() || answer.rfind("HTTP/1.1 503 ", 0) == 0) << answer;
    close(fd);
}

}  // namespace
}  // namespace korva::gateway
