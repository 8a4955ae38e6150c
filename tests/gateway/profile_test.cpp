// Device profiles: what a profile may hold. How it changes a device's answers (latency,
// silence, resources, raw bytes) is shown end to end (e2e device resources, HTTP, load).
#include <gtest/gtest.h>

#include "gateway/sim/device_profile.h"
#include "gateway/sim/json_util.h"

namespace korva::sim {
namespace {

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

}  // namespace
}  // namespace korva::sim
