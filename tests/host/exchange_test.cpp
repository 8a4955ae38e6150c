// CHttpExchange over its backend: found by handle from any thread, inert once detached, with
// handles that wrap round but are never reused while referred to.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "gateway/hostlib/exchange_backend.h"
#include "gateway/testing/harness.h"
#include "host/http_exchange.h"

namespace korva::testing {
namespace {

using QXHttpService::CHttpExchange;
using QXHttpService::ExchangeRegistry;

// What the plug-in reads and how it answers is the exchange conformance test's (server tests);
// here: the handle reaches the backend from any thread and is inert once removed.
TEST(Exchange, FoundByHandleFromAnyThreadAndInertOnceRemoved) {
    TestRequest request(QXHttpService::kMethodGet, "/a", "", {{"Authorization", "Digest x"}});
    const int handle = request.handle();
    ASSERT_GT(handle, 0);
    std::thread([handle] {
        CHttpExchange exchange(handle);
        EXPECT_TRUE(exchange.isAttached());
        EXPECT_EQ(exchange.getHttpHandle(), handle);
        exchange.setMIME();
    }).join();
    EXPECT_TRUE(request.exchange().streaming());
    ExchangeRegistry::instance().remove(handle);  // the backend lives on, unreachable
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
    EXPECT_EQ(request.exchange().status(), 0);
    EXPECT_TRUE(request.exchange().answerHeaders().empty());
    EXPECT_FALSE(CHttpExchange(std::shared_ptr<QXHttpService::ExchangeBackend>{}).isAttached());
}

TEST(Exchange, HandlesWrapSkippingThoseStillReferredToAndRunOutCleanly) {
    ExchangeRegistry registry(3, 4);  // at most 3 entries, handles 1..4
    std::vector<std::shared_ptr<korva::testing::IdleExchange>> backends;
    auto add = [&] {
        backends.push_back(std::make_shared<korva::testing::IdleExchange>());
        return registry.add(backends.back());
    };
    EXPECT_EQ(1, add());
    EXPECT_EQ(2, add());
    EXPECT_EQ(3, add());
    EXPECT_EQ(-1, add());  // the table is full: refused, nothing reused
    EXPECT_EQ(registry.find(1), backends[0]);

    registry.remove(2);
    ASSERT_TRUE(registry.retain(3));  // a relay still refers to 3
    registry.remove(3);
    EXPECT_FALSE(registry.retain(3));
    EXPECT_EQ(nullptr, registry.find(3));
    EXPECT_EQ(4, add());
    registry.remove(4);
    EXPECT_EQ(2, add());  // wrapped round: 1 is live, 2 is free
    registry.remove(2);
    EXPECT_EQ(4, add());  // 3 is still retained
    registry.release(3);
    registry.remove(4);
    EXPECT_EQ(2, add());
    EXPECT_EQ(3, add());  // free again once released

    // The registry does not keep a backend alive, and dead entries do not pile up.
    backends.clear();
    EXPECT_EQ(0u, registry.size());
    EXPECT_EQ(4, add());
    EXPECT_EQ(nullptr, registry.find(1));
    EXPECT_EQ(-1, registry.add(nullptr));
}

TEST(Exchange, TheProcessRegistryForgetsBackendsThatDiedUnremoved) {
    auto& registry = ExchangeRegistry::instance();
    const size_t before = registry.size();
    for (int i = 0; i < 1000; ++i)
        EXPECT_GT(registry.add(std::make_shared<korva::testing::IdleExchange>()), 0);
    EXPECT_EQ(registry.size(), before);
}

}  // namespace
}  // namespace korva::testing
