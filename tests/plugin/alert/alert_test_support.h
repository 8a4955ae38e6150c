// Shared set-up of the alert stream tests: accounts bound to three devices, stream requests
// through the real pipeline, part parsing and polling.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "gateway/hostlib/host_alarms.h"
#include "gateway/hostlib/host_auth.h"
#include "gateway/hostlib/host_clock.h"
#include "gateway/hostlib/host_devices.h"
#include "gateway/testing/harness.h"
#include "plugin/alert/event_pto.h"

namespace QXKORVAProtocol::alert_test {

using korva::testing::HostFixture;
using korva::testing::RecordingExchange;
using korva::testing::TestRequest;
using Devices = std::vector<std::string>;

constexpr const char* kStreamUrl = "/KORVA/Event/notification/alertStream";

inline bool waitUntil(const std::function<bool()>& pred) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!pred()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

struct StreamRequest {
    std::unique_ptr<TestRequest> request;
    int status = 0, asyncReply = 0;
    std::string response;

    RecordingExchange& exchange() const { return request->exchange(); }
    // What was written after the head (the head is the first, empty, write).
    std::vector<std::string> parts() const {
        std::vector<std::string> all = request->exchange().writes();
        return all.empty() ? all : std::vector<std::string>(all.begin() + 1, all.end());
    }
};

// GET of the stream through service's pipeline as user: "admin", "user2", "user3" are bound to
// "dev-1", "dev-2", "dev-3".
inline StreamRequest requestStream(CEventPto& service, const std::string& user = "admin") {
    StreamRequest out;
    out.request = std::make_unique<TestRequest>(
        QXHttpService::kMethodGet, kStreamUrl, std::string(),
        std::map<std::string, std::string>{
            {"Authorization",
             HostFixture::authorization("GET", kStreamUrl, user, HostFixture::kPassword)}});
    int handled = 1;
    out.status = service.proc(&handled, &out.response, &out.asyncReply, out.request->holder());
    return out;
}

inline std::string alarmJson(const std::string& devIndex, const std::string& members = "") {
    return R"({"EventNotificationAlert":{"devIndex":")" + devIndex + "\"" +
           (members.empty() ? "" : "," + members) + "}}";
}

// The document of a part framed exactly, "<malformed part>" otherwise.
inline std::string documentOf(const std::string& part) {
    const std::string head =
        "--boundary\r\nContent-Type: application/xml; charset=\"UTF-8\"\r\nContent-Length: ";
    const size_t end = part.find("\r\n\r\n");
    const std::string document = end == std::string::npos ? "" : part.substr(end + 4);
    const bool framed =
        part.compare(0, head.size(), head) == 0 && end != std::string::npos &&
        part.substr(head.size(), end - head.size()) == std::to_string(document.size());
    return framed ? document : "<malformed part>";
}

inline Devices subscribedDevices() {
    const auto subscriptions = korva::host::listSubscriptions();
    if (subscriptions.size() != 1) {
        const std::string count = std::to_string(subscriptions.size());
        return {"<" + count + ">"};  // not "<" + to_string(): GCC 12 warns falsely on that at -O3
    }
    return subscriptions.front().devices;
}

// A started service of its own (not the process-wide one) on a manual clock: timers run only
// when a test advances it.
class AlertServiceTest : public ::testing::Test {
  protected:
    static constexpr uint32_t kStartTick = 1000000;

    AlertServiceTest() {
        korva::host::setAccounts({{"admin", HostFixture::kPassword, "dev-1"},
                                  {"user2", HostFixture::kPassword, "dev-2"},
                                  {"user3", HostFixture::kPassword, "dev-3"}},
                                 korva::host::AuthSettings{});
        for (const char* device : {"dev-2", "dev-3"}) {
            korva::host::attachDevice(device, std::make_shared<korva::testing::ScriptedDevice>());
        }
    }
    void SetUp() override {
        korva::host::useManualClock(kStartTick);
        ASSERT_EQ(service.start(), 0);
    }
    void TearDown() override { service.stop(); }

    std::shared_ptr<CAlertStreamSession> sessionOf(const StreamRequest& stream) {
        for (const auto& session : service.streams().snapshot()) {
            if (session->getHttpHandle() == stream.request->handle()) return session;
        }
        return nullptr;
    }

    HostFixture host;  // declared first: outlives the service
    CEventPto service;
};

}  // namespace QXKORVAProtocol::alert_test
