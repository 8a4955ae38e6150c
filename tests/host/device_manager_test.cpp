// The device manager: lookups follow attach/detach, and notifications arrive in order on the
// notification thread and stop once a routine is unregistered.
#include <gtest/gtest.h>

#include <atomic>

#include "gateway/testing/harness.h"
#include "host/device_mgr.h"
#include "tests/host/bus_test_support.h"

namespace korva::testing {
namespace {

using korva::host::attachDevice;
using korva::host::detachDevice;
using korva::host::reattachDevice;

struct Event {
    int code;
    std::string devIndex;
    std::thread::id thread;
};

void recordEvent(int event, const char* devIndex, void* user) {
    static_cast<CallLog<Event>*>(user)->add(Event{event, devIndex, std::this_thread::get_id()});
}

class DeviceManagerTest : public ::testing::Test {
  protected:
    HostFixture m_host;
};

TEST_F(DeviceManagerTest, LookupsFollowTheAttachState) {
    struct Step {
        const char* action;
        const char* devIndex;
        bool result;
        bool attachedAfter;
    };
    const Step steps[] = {
        {"detach", "dev-1", true, false},   {"detach", "dev-1", false, false},
        {"reattach", "dev-1", true, true},  {"reattach", "dev-1", true, true},
        {"reattach", "nope", false, false}, {"detach", "nope", false, false},
    };
    for (const Step& step : steps) {
        SCOPED_TRACE(std::string(step.action) + " " + step.devIndex);
        const bool result = std::string(step.action) == "detach" ? detachDevice(step.devIndex)
                                                                 : reattachDevice(step.devIndex);
        EXPECT_EQ(step.result, result);
        EXPECT_EQ(step.attachedAfter, QX_DeviceMgr_GetDevice(step.devIndex) != nullptr);
    }
    auto devices = korva::host::listDevices();
    ASSERT_EQ(1u, devices.size());
    EXPECT_EQ("dev-1", devices[0].devIndex);
    EXPECT_TRUE(devices[0].attached);

    korva::host::clearDevices();
    EXPECT_EQ(nullptr, QX_DeviceMgr_GetDevice("dev-1"));
    EXPECT_FALSE(reattachDevice("dev-1"));
    EXPECT_TRUE(korva::host::listDevices().empty());
}

TEST_F(DeviceManagerTest, NotifiesChangesInOrderOnOneOtherThread) {
    CallLog<Event> log;
    ASSERT_EQ(0, QX_DeviceMgr_NotifyAttach(recordEvent, &log));
    attachDevice("dev-2", std::make_shared<ScriptedDevice>());  // new: no event
    detachDevice("dev-1");
    detachDevice("dev-2");
    reattachDevice("dev-1");
    attachDevice("dev-2", std::make_shared<ScriptedDevice>());  // was detached: event 0
    attachDevice("dev-2", std::make_shared<ScriptedDevice>());  // still attached: no event
    detachDevice("dev-1");

    ASSERT_TRUE(log.waitFor(5));
    std::this_thread::sleep_for(50ms);
    ASSERT_EQ(0, QX_DeviceMgr_NotifyDetach(recordEvent));
    const std::vector<std::pair<int, std::string>> expected = {
        {1, "dev-1"}, {1, "dev-2"}, {0, "dev-1"}, {0, "dev-2"}, {1, "dev-1"}};
    const auto events = log.calls();
    ASSERT_EQ(expected.size(), events.size());
    for (size_t i = 0; i < events.size(); ++i) {
        EXPECT_EQ(expected[i].first, events[i].code) << i;
        EXPECT_EQ(expected[i].second, events[i].devIndex) << i;
        EXPECT_NE(std::this_thread::get_id(), events[i].thread);
        EXPECT_EQ(events[0].thread, events[i].thread);
    }
}

TEST_F(DeviceManagerTest, RegistrationArguments) {
    EXPECT_EQ(-1, QX_DeviceMgr_NotifyAttach(nullptr, nullptr));
    EXPECT_EQ(-1, QX_DeviceMgr_NotifyDetach(recordEvent));
    CallLog<Event> first, second;
    ASSERT_EQ(0, QX_DeviceMgr_NotifyAttach(recordEvent, &first));
    ASSERT_EQ(0, QX_DeviceMgr_NotifyAttach(recordEvent, &second));
    detachDevice("dev-1");
    ASSERT_TRUE(first.waitFor(1));
    ASSERT_TRUE(second.waitFor(1));
    EXPECT_EQ(0, QX_DeviceMgr_NotifyDetach(recordEvent));  // both registrations go
    EXPECT_EQ(-1, QX_DeviceMgr_NotifyDetach(recordEvent));
}

void slowRoutine(int, const char*, void* user) {
    static_cast<SlowRoutine*>(user)->run();
}

TEST_F(DeviceManagerTest, NotifyDetachWaitsForARunningRoutineAndStopsLaterCalls) {
    SlowRoutine routine;
    ASSERT_EQ(0, QX_DeviceMgr_NotifyAttach(slowRoutine, &routine));
    detachDevice("dev-1");
    reattachDevice("dev-1");  // queued behind the slow first call
    routine.waitUntilEntered();
    ASSERT_EQ(0, QX_DeviceMgr_NotifyDetach(slowRoutine));
    EXPECT_FALSE(routine.inside);
    detachDevice("dev-1");
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(1, routine.calls.load());
}

struct SelfRemoving {
    std::atomic<int> calls{0};
    std::atomic<int> result{1};
    static void run(int, const char*, void* user) {
        auto* self = static_cast<SelfRemoving*>(user);
        self->calls.fetch_add(1);
        self->result = QX_DeviceMgr_NotifyDetach(SelfRemoving::run);  // must not deadlock
    }
};

TEST_F(DeviceManagerTest, RoutineMayUnregisterItself) {
    SelfRemoving routine;
    ASSERT_EQ(0, QX_DeviceMgr_NotifyAttach(SelfRemoving::run, &routine));
    detachDevice("dev-1");
    reattachDevice("dev-1");
    while (routine.calls == 0) std::this_thread::sleep_for(1ms);
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(1, routine.calls.load());
    EXPECT_EQ(0, routine.result.load());
}

}  // namespace
}  // namespace korva::testing
