// Shared set-up of the alert stream tests: a host with three accounts bound to three devices,
// stream requests through the real pipeline, and small polling helpers.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "gateway/hostlib/host_control.h"
#include "gateway/testing/harness.h"
#include "plugin/alert/event_pto.h"

namespace QXKORVAProtocol::alert_test {

using korva::testing::HostFixture;
using korva::testing::RecordingExchange;
using korva::testing::TestRequest;

constexpr const char* kStreamUrl = "/KORVA/Event/notification/alertStream";

// account -> device: "admin" -> "dev-1", "user2" -> "dev-2", "user3" -> "dev-3".
inline std::string deviceOf(const std::string& user) {
    if (user == "user2") return "dev-2";
    if (user == "user3") return "dev-3";
    return HostFixture::kDevice;
}

// Polls pred every millisecond until it holds or the timeout passes.
inline bool waitUntil(const std::function<bool()>& pred,
                      std::chrono::milliseconds timeout = std::chrono::seconds(5)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!pred()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// One stream request and what the service answered.
struct StreamRequest {
    std::unique_ptr<TestRequest> request;
    int status = 0;
    int asyncReply = 0;
    std::string response;

    RecordingExchange& exchange() const { return request->exchange(); }
    // Parts written after the head (the head is the first, empty, write).
    std::vector<std::string> parts() const {
        std::vector<std::string> all = request->exchange().writes();
        if (!all.empty()) all.erase(all.begin());
        return all;
    }
};

// GET of the stream through the pipeline (proc) of service, authenticated as user.
inline StreamRequest requestStream(CEventPto& service, const std::string& user = "admin",
                                   const std::string& url = kStreamUrl) {
    StreamRequest out;
    const std::string password = HostFixture::kPassword;
    out.request = std::make_unique<TestRequest>(
        QXHttpService::kMethodGet, url, std::string(),
        std::map<std::string, std::string>{
            {"Authorization", HostFixture::authorization("GET", url, user, password)}});
    int handled = 1;
    out.status = service.proc(&handled, &out.response, &out.asyncReply, out.request->holder());
    return out;
}

// The host of HostFixture plus two more accounts and devices, all devices attached.
class AlertHost {
  public:
    AlertHost() {
        korva::host::setAccounts({{"admin", HostFixture::kPassword, "dev-1"},
                                  {"user2", HostFixture::kPassword, "dev-2"},
                                  {"user3", HostFixture::kPassword, "dev-3"}},
                                 korva::host::AuthSettings{});
        korva::host::attachDevice("dev-2", std::make_shared<korva::testing::ScriptedDevice>());
        korva::host::attachDevice("dev-3", std::make_shared<korva::testing::ScriptedDevice>());
    }

    // Devices of the only subscription, or {"<none>"} / {"<many>"}.
    static std::vector<std::string> subscribedDevices() {
        const auto subscriptions = korva::host::listSubscriptions();
        if (subscriptions.empty()) return {"<none>"};
        if (subscriptions.size() > 1) return {"<many>"};
        return subscriptions.front().devices;
    }

  private:
    HostFixture m_host;
};

// An alarm document of device devIndex with the given extra members of EventNotificationAlert.
inline std::string alarmJson(const std::string& devIndex, const std::string& members = "") {
    std::string text = R"({"EventNotificationAlert":{"devIndex":")" + devIndex + "\"";
    if (!members.empty()) text += "," + members;
    return text + "}}";
}

// The document of one part when the part is framed exactly (header, length, no trailer);
// "<malformed part>" otherwise.
inline std::string documentOf(const std::string& part) {
    const std::string head =
        "--boundary\r\nContent-Type: application/xml; charset=\"UTF-8\"\r\n"
        "Content-Length: ";
    if (part.compare(0, head.size(), head) != 0) return "<malformed part>";
    const size_t end = part.find("\r\n\r\n", head.size());
    if (end == std::string::npos) return "<malformed part>";
    const std::string digits = part.substr(head.size(), end - head.size());
    if (digits.empty() || digits.find_first_not_of("0123456789") != std::string::npos ||
        (digits.size() > 1 && digits[0] == '0')) {
        return "<malformed part>";
    }
    const std::string document = part.substr(end + 4);
    if (std::to_string(document.size()) != digits) return "<malformed part>";
    return document;
}

// A started service of its own (not the process-wide one) on a host with a manual clock, so
// timers run only when a test advances the clock.
class AlertServiceTest : public ::testing::Test {
  protected:
    static constexpr uint32_t kStartTick = 1000000;

    void SetUp() override {
        korva::host::useManualClock(kStartTick);
        ASSERT_EQ(service.start(), 0);
    }
    void TearDown() override { service.stop(); }

    // The open stream of this request (null when not in the table).
    std::shared_ptr<CAlertStreamSession> sessionOf(const StreamRequest& stream) {
        for (const auto& session : service.streams().snapshot()) {
            if (session->getHttpHandle() == stream.request->handle()) return session;
        }
        return nullptr;
    }

    AlertHost host;  // declared first: outlives the service
    CEventPto service;
};

}  // namespace QXKORVAProtocol::alert_test
