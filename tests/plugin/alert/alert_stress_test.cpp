// Everything at once on many threads: stream requests, alarms, heartbeats, clean-up, failing
// and broken links, device detaches. Checks the per-device limit, the single subscription and
// every part's framing; meant to run clean under the sanitizers.
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <random>

#include "tests/plugin/alert/alert_test_support.h"

namespace QXKORVAProtocol::alert_test {
namespace {

constexpr int kDevices = 8;

std::string deviceNo(unsigned i) {
    return "sdev-" + std::to_string(i % kDevices);
}

TEST_F(AlertServiceTest, StressEverythingAtOnce) {
    std::vector<korva::host::Account> accounts;
    for (unsigned i = 0; i < kDevices; ++i) {
        accounts.push_back({"s" + deviceNo(i), HostFixture::kPassword, deviceNo(i)});
        korva::host::attachDevice(deviceNo(i), std::make_shared<korva::testing::ScriptedDevice>());
    }
    korva::host::setAccounts(accounts, korva::host::AuthSettings{});

    std::mutex mutex;  // guards opened and live
    std::vector<std::shared_ptr<RecordingExchange>> opened;
    std::vector<std::unique_ptr<TestRequest>> live;
    std::atomic<int> violations{0};
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    const auto spawn = [&](std::function<void(std::mt19937&)> body) {
        threads.emplace_back([&stop, body, seed = threads.size()] {
            std::mt19937 random(static_cast<unsigned>(seed));
            while (!stop) body(random);
        });
    };
    for (int opener = 0; opener < 2; ++opener) {
        spawn([&](std::mt19937& random) {
            StreamRequest stream =
                requestStream(service, "s" + deviceNo(static_cast<unsigned>(random())));
            if (stream.status != 200) return;
            if (random() % 4 == 0) stream.exchange().setRespondResult([](int n) { return n - 1; });
            std::lock_guard<std::mutex> lock(mutex);
            opened.push_back(stream.request->exchangePtr());
            live.push_back(std::move(stream.request));
        });
    }
    spawn([](std::mt19937& random) {
        const char* extra[] = {R"("eventType":"VMD")", R"("activePostCount":"bad")",
                               R"("eventDescription":"Heart Beat")"};
        const std::string device = deviceNo(static_cast<unsigned>(random()));
        korva::host::publishAlarm(device, alarmJson(device, extra[random() % 3]));
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    });
    spawn([](std::mt19937&) {
        korva::host::advanceClock(1000);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    });
    spawn([&](std::mt19937& random) {
        std::unique_ptr<TestRequest> gone;
        {
            std::lock_guard<std::mutex> lock(mutex);
            if (live.empty()) return;
            const size_t at = random() % live.size();
            gone = std::move(live[at]);
            live.erase(live.begin() + static_cast<long>(at));
        }
        gone->exchange().breakLink();
        for (const auto& session : service.streams().snapshot()) {
            if (random() % 16 == 0) session->sendFailCount = CEventPto::kMaxSendFailCount + 1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    });
    spawn([](std::mt19937& random) {
        const std::string device = deviceNo(static_cast<unsigned>(random()));
        korva::host::detachDevice(device);
        std::this_thread::sleep_for(std::chrono::milliseconds(3));
        korva::host::reattachDevice(device);
    });
    spawn([&](std::mt19937&) {
        std::map<std::string, int> perDevice;
        for (const auto& session : service.streams().snapshot()) {
            if (++perDevice[session->getDevIndex()] > 2) ++violations;
        }
        if (korva::host::listSubscriptions().size() > 1) ++violations;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    stop = true;
    for (auto& thread : threads) thread.join();
    service.stop();  // writes whatever is still queued

    EXPECT_EQ(violations.load(), 0);
    EXPECT_GT(opened.size(), static_cast<size_t>(kDevices));
    for (const auto& exchange : opened) {
        const std::vector<std::string> writes = exchange->writes();
        EXPECT_EQ(writes.at(0), "");  // the head comes first
        for (size_t i = 1; i < writes.size(); ++i)
            ASSERT_NE(documentOf(writes[i]), "<malformed part>");
    }
}

}  // namespace
}  // namespace QXKORVAProtocol::alert_test
