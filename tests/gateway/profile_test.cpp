// Device profiles: what a profile may hold, and how it changes a device's answers.
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "gateway/sim/device_profile.h"
#include "gateway/sim/json_util.h"

namespace korva::sim {
namespace {

using korva::host::DeviceReply;
using korva::host::DeviceRequest;

Json::Value json(const std::string& text) {
    Json::Value value;
    EXPECT_TRUE(parseJson(text, &value)) << text;
    return value;
}

// Resources, raw answers, silence and latency are shown working end to end.
TEST(DeviceProfile, ReadsAlarmIntervalAndDefaults) {
    EXPECT_EQ(parseProfile(json(R"({"alarms": {"intervalMs": 500}})")).alarmIntervalMs, 500);
    EXPECT_EQ(parseProfile(json("{}")).latencyMs, 0);
}

TEST(DeviceProfile, NamesTheBadMember) {
    const std::pair<const char*, const char*> cases[] = {
        {"[]", "(document)"},
        {R"({"latency": 1})", "latency"},
        {R"({"latencyMs": -1})", "latencyMs"},
        {R"({"resources": {"GET nowhere": 1}})", "resources[\"GET nowhere\"]"},
        {R"({"resources": {"GET /x?y=1": 1}})", "resources[\"GET /x?y=1\"]"},
        {R"({"raw": {"GET /x": 5}})", "raw[\"GET /x\"]"},
        {R"({"silent": ["GET /x", 3]})", "silent[1]"},
        {R"({"alarms": {"intervalMs": 5}})", "alarms.intervalMs"},
    };
    for (const auto& [text, field] : cases) {
        try {
            parseProfile(json(text));
            ADD_FAILURE() << "accepted " << text;
        } catch (const ProfileError& error) {
            EXPECT_EQ(error.field(), field) << text;
        }
    }
}

// A device that answers every request with its path.
class EchoDevice : public korva::host::DeviceEndpoint {
  public:
    void handle(const DeviceRequest& request, DeviceReply reply) override {
        reply("device:" + request.path);
    }
};

// Collects one reply, waiting for it when it comes later.
struct Collector {
    std::mutex mutex;
    std::condition_variable cv;
    std::vector<std::string> replies;

    DeviceReply reply() {
        return [this](std::string bytes) {
            std::lock_guard<std::mutex> lock(mutex);
            replies.push_back(std::move(bytes));
            cv.notify_all();
        };
    }
    bool waitFor(std::size_t n, std::chrono::milliseconds timeout) {
        std::unique_lock<std::mutex> lock(mutex);
        return cv.wait_for(lock, timeout, [&] { return replies.size() >= n; });
    }
};

DeviceRequest request(int method, const std::string& path) {
    DeviceRequest r;
    r.method = method;
    r.path = path;
    return r;
}

TEST(ProfiledDevice, DelaysEveryAnswerByTheLatency) {
    SimScheduler scheduler;
    DeviceProfile profile;
    profile.latencyMs = 150;
    profile.resources["GET /a"] = "{}";
    ProfiledDevice profiled(profile, std::make_shared<EchoDevice>(), scheduler);
    Collector collector;
    const auto start = std::chrono::steady_clock::now();
    profiled.handle(request(0, "/a"), collector.reply());
    profiled.handle(request(0, "/b"), collector.reply());
    EXPECT_TRUE(collector.replies.empty());
    ASSERT_TRUE(collector.waitFor(2, std::chrono::seconds(5)));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(150));
    scheduler.stop();
}

}  // namespace
}  // namespace korva::sim
