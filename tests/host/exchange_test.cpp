// CHttpExchange over its backend, handles and detached exchanges.
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <thread>

#include "gateway/hostlib/exchange_backend.h"
#include "host/http_exchange.h"

using QXHttpService::CHttpExchange;
using QXHttpService::ExchangeBackend;
using QXHttpService::ExchangeRegistry;

namespace {

class FakeBackend : public ExchangeBackend {
public:
    std::string url() const override { return "/KORVA/System/deviceInfo?x=1"; }
    unsigned char method() const override { return QXHttpService::kMethodPut; }
    std::string header(const std::string& name) const override {
        return name == "authorization" || name == "Authorization" ? "Digest x" : "";
    }
    void setHeader(const std::string& name, const std::string& value) override {
        headers[name] = value;
    }
    void setStatus(int value) override { status = value; }
    void setMime(const std::string& value) override { mime = value; }
    void setStreamMime() override { stream = true; }
    int respond(const void* data, int length) override {
        body.append(static_cast<const char*>(data), static_cast<size_t>(length));
        return length;
    }

    std::map<std::string, std::string> headers;
    int status = 0;
    std::string mime;
    bool stream = false;
    std::string body;
};

}  // namespace

TEST(Exchange, ForwardsToItsBackend) {
    auto backend = std::make_shared<FakeBackend>();
    const int handle = ExchangeRegistry::instance().add(backend);
    ASSERT_GT(handle, 0);
    EXPECT_EQ(backend->handle(), handle);

    CHttpExchange exchange(handle);  // rebuilt from the handle, on another thread too
    ASSERT_TRUE(exchange.isAttached());
    EXPECT_EQ(exchange.getUrl(), "/KORVA/System/deviceInfo?x=1");
    EXPECT_EQ(exchange.getMethod(), QXHttpService::kMethodPut);
    EXPECT_EQ(exchange.getHead("Authorization"), "Digest x");
    EXPECT_EQ(exchange.getHttpHandle(), handle);
    exchange.setHead("WWW-Authenticate", "Digest y");
    exchange.setStatus(401);
    exchange.setMIME("application/xml");
    EXPECT_EQ(exchange.response("abc", 3), 3);
    std::thread([handle] {
        CHttpExchange other(handle);
        other.setMIME();
    }).join();
    EXPECT_EQ(backend->headers["WWW-Authenticate"], "Digest y");
    EXPECT_EQ(backend->status, 401);
    EXPECT_EQ(backend->mime, "application/xml");
    EXPECT_TRUE(backend->stream);
    EXPECT_EQ(backend->body, "abc");
    ExchangeRegistry::instance().remove(handle);
}

TEST(Exchange, DetachedExchangesDoNothing) {
    auto backend = std::make_shared<FakeBackend>();
    const int handle = ExchangeRegistry::instance().add(backend);
    ExchangeRegistry::instance().remove(handle);
    for (int h : {handle, -1, 0, 0x7FFFFFF0}) {
        CHttpExchange exchange(h);
        EXPECT_FALSE(exchange.isAttached());
        EXPECT_EQ(exchange.getUrl(), "");
        EXPECT_EQ(exchange.getMethod(), QXHttpService::kMethodOther);
        EXPECT_EQ(exchange.getHead("Authorization"), "");
        EXPECT_EQ(exchange.getHttpHandle(), -1);
        exchange.setStatus(200);
        exchange.setHead("a", "b");
        EXPECT_EQ(exchange.response("x", 1), CHttpExchange::kLinkBroken);
    }
    EXPECT_EQ(backend->status, 0);
    CHttpExchange null(std::shared_ptr<ExchangeBackend>{});
    EXPECT_FALSE(null.isAttached());
}

TEST(Exchange, HandlesAreNeverReusedAndReferencesAreWeak) {
    auto& registry = ExchangeRegistry::instance();
    const size_t before = registry.size();
    auto first = std::make_shared<FakeBackend>();
    const int a = registry.add(first);
    registry.remove(a);
    auto second = std::make_shared<FakeBackend>();
    const int b = registry.add(second);
    EXPECT_GT(b, a);
    EXPECT_EQ(registry.size(), before + 1);
    second.reset();  // the registry does not keep a backend alive
    EXPECT_EQ(registry.find(b), nullptr);
    EXPECT_EQ(registry.size(), before);
    EXPECT_FALSE(CHttpExchange(b).isAttached());
    registry.remove(b);
    EXPECT_EQ(registry.add(nullptr), -1);

    // Many short-lived backends that are never removed do not pile up.
    for (int i = 0; i < 1000; ++i) registry.add(std::make_shared<FakeBackend>());
    EXPECT_EQ(registry.size(), before);
}
