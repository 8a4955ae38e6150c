// The admin handler against the real alarm bus: an alarm the bus cannot take is refused to the
// injector and counted, never dropped in silence.
#include <gtest/gtest.h>

#include <future>

#include "gateway/hostlib/host_alarms.h"
#include "gateway/server/admin_handler.h"
#include "gateway/server/connection_registry.h"
#include "gateway/server/metrics.h"
#include "host/alarm_bus.h"

namespace korva::gateway {
namespace {

namespace http = boost::beast::http;

// Holds the delivery thread in the first alarm's routine until released.
struct Gate {
    std::promise<void> entered;
    std::shared_future<void> release;
    bool first = true;
};

int holdDelivery(const char*, int, void* user) {
    auto* gate = static_cast<Gate*>(user);
    if (gate->first) {
        gate->first = false;
        gate->entered.set_value();
        gate->release.wait();
    }
    return 0;
}

TEST(AdminHandler, AlarmTheBusCannotTakeIsRefusedWith503AndCounted) {
    ConnectionRegistry connections;
    Metrics metrics;
    AdminHandler handler(connections, metrics);
    handler.setAccess(AdminAccess("127.0.0.1", 8081, ""));
    std::promise<void> release;
    Gate gate{{}, release.get_future().share()};
    int id = 0;
    ASSERT_EQ(
        QX_AlarmBus_Subscribe(
            &id, nullptr, R"({"SubscribeDeviceMgmt":{"DevEventList":[{"Dev":{"devIndex":"d"}}]}})",
            holdDelivery, &gate, 1),
        0);
    ASSERT_EQ(QX_AlarmBus_StartUploadData(id), 0);

    HttpRequest request(http::verb::post, "/admin/alarms", 11);
    request.set(http::field::host, "127.0.0.1:8081");
    request.body() = R"({"EventNotificationAlert":{"devIndex":"d"}})";
    ASSERT_EQ(handler.handle(request).status, 202);
    gate.entered.get_future().wait();
    int accepted = 0;
    AdminAnswer answer;
    while ((answer = handler.handle(request)).status == 202 && accepted < 5000) ++accepted;
    EXPECT_EQ(accepted, 1024) << "the bus queue holds 1024 alarms";
    EXPECT_EQ(answer.status, 503);
    EXPECT_NE(answer.body.find("\"error\""), std::string::npos);
    EXPECT_EQ(handler.handle(request).status, 503);
    EXPECT_EQ(metrics.alarmsRefused(), 2u);
    EXPECT_NE(metrics.render(0).find("korva_alarms_refused_total 2\n"), std::string::npos);

    release.set_value();
    korva::host::flushAlarms();
    EXPECT_EQ(handler.handle(request).status, 202);
    korva::host::flushAlarms();
    korva::host::resetAlarmBus();
}

}  // namespace
}  // namespace korva::gateway
