// Everything at once: stream requests, alarms, heartbeats, clean-up runs, failing and broken
// links and device detaches on many threads. Meant to run clean under ThreadSanitizer and
// AddressSanitizer; checks the per-device limit, the single subscription and the framing of
// every part written.
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <mutex>
#include <random>

#include "tests/plugin/alert/alert_test_support.h"

namespace QXKORVAProtocol::alert_test {
namespace {

constexpr int kDevices = 8;
constexpr auto kRunTime = std::chrono::milliseconds(1500);

std::string userOf(int i) {
    return "stress" + std::to_string(i);
}
std::string deviceNo(int i) {
    return "sdev-" + std::to_string(i);
}

class AlertStress : public AlertServiceTest {
  protected:
    void SetUp() override {
        std::vector<korva::host::Account> accounts;
        for (int i = 0; i < kDevices; ++i) {
            accounts.push_back({userOf(i), HostFixture::kPassword, deviceNo(i)});
            korva::host::attachDevice(deviceNo(i),
                                      std::make_shared<korva::testing::ScriptedDevice>());
        }
        korva::host::setAccounts(accounts, korva::host::AuthSettings{});
        AlertServiceTest::SetUp();
    }

    // Runs body on a thread until the run time is over.
    void spawn(std::function<void(std::mt19937&)> body) {
        const unsigned seed = static_cast<unsigned>(m_threads.size()) + 1;
        m_threads.emplace_back([this, body = std::move(body), seed] {
            std::mt19937 random(seed);
            while (!m_stop) body(random);
        });
    }
    void runAll() {
        std::this_thread::sleep_for(kRunTime);
        m_stop = true;
        for (auto& thread : m_threads) thread.join();
    }

    std::mutex mutex;                                        // guards the two lists below
    std::vector<std::shared_ptr<RecordingExchange>> opened;  // every stream that got 200
    std::vector<std::unique_ptr<TestRequest>> live;          // streams still connected
    std::atomic<int> violations{0};

  private:
    std::atomic<bool> m_stop{false};
    std::vector<std::thread> m_threads;
};

TEST_F(AlertStress, ManyStreamsAlarmsHeartbeatsDisconnectsAndDetaches) {
    for (int opener = 0; opener < 2; ++opener) {
        spawn([this](std::mt19937& random) {
            StreamRequest stream = requestStream(service, userOf(random() % kDevices));
            if (stream.status != 200) return;
            if (random() % 4 == 0) {
                stream.exchange().setRespondResult([](int length) { return length - 1; });
            }
            std::lock_guard<std::mutex> lock(mutex);
            opened.push_back(stream.request->exchangePtr());
            live.push_back(std::move(stream.request));
        });
    }
    spawn([](std::mt19937& random) {
        const std::string device = deviceNo(random() % kDevices);
        const char* extra[] = {R"("eventType":"VMD")", R"("activePostCount":"bad")",
                               R"("eventDescription":"Heart Beat")",
                               R"("DetectionRegionList":[null,{"DetectionRegionEntry":{}}])"};
        korva::host::publishAlarm(device, alarmJson(device, extra[random() % 4]));
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    });
    spawn([](std::mt19937&) {
        korva::host::advanceClock(1000);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    });
    spawn([this](std::mt19937& random) {
        std::unique_ptr<TestRequest> gone;
        {
            std::lock_guard<std::mutex> lock(mutex);
            if (live.empty()) return;
            const size_t at = random() % live.size();
            gone = std::move(live[at]);
            live.erase(live.begin() + static_cast<long>(at));
        }
        if (random() % 2 == 0) gone->exchange().breakLink();  // else the connection vanishes
        for (const auto& session : service.streams().snapshot()) {
            if (random() % 16 == 0) session->sendFailCount = CEventPto::kMaxSendFailCount + 1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    });
    spawn([](std::mt19937& random) {
        const std::string device = deviceNo(random() % kDevices);
        korva::host::detachDevice(device);
        std::this_thread::sleep_for(std::chrono::milliseconds(3));
        korva::host::reattachDevice(device);
    });
    spawn([this](std::mt19937&) {
        std::map<std::string, int> perDevice;
        for (const auto& session : service.streams().snapshot())
            ++perDevice[session->getDevIndex()];
        for (const auto& [device, count] : perDevice) {
            if (count > 2) ++violations;
        }
        if (korva::host::listSubscriptions().size() > 1) ++violations;
    });
    runAll();
    service.stop();  // writes whatever is still queued

    EXPECT_EQ(violations.load(), 0);
    std::lock_guard<std::mutex> lock(mutex);
    EXPECT_GT(opened.size(), static_cast<size_t>(kDevices));
    size_t parts = 0;
    for (const auto& exchange : opened) {
        const std::vector<std::string> writes = exchange->writes();
        ASSERT_FALSE(writes.empty());
        EXPECT_EQ(writes[0], "");  // the head comes first
        for (size_t i = 1; i < writes.size(); ++i) {
            ASSERT_NE(documentOf(writes[i]), "<malformed part>") << writes[i];
            ++parts;
        }
    }
    EXPECT_GT(parts, 0u);
}

}  // namespace
}  // namespace QXKORVAProtocol::alert_test
