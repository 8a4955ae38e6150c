// Alarm translation and fan-out to open alert streams.
//
// BM_Translate is the baseline: parse one alarm and translate it to its XML text. BM_FanOut
// runs the alarm routine for the same alarm against a table of open streams and waits until
// every part has been written by the worker pool (to exchanges that discard the bytes), so its
// time covers translation, lookup, copies, queueing, framing and the writes. Each fan-out case
// reports "x_translate", its time per alarm over the baseline's, measured in the same run.
//   streams:1       one stream
//   streams:2       two streams of one device
//   streams:1000    1000 streams over 500 devices (each alarm reaches the two of its device)
#include <benchmark/benchmark.h>
#include <json/reader.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "gateway/hostlib/exchange_backend.h"
#include "gateway/hostlib/host_clock.h"
#include "gateway/testing/harness.h"
#include "plugin/alert/alarm_translation.h"
#include "plugin/alert/event_pto.h"

namespace {

using QXKORVAProtocol::CAlertStreamSession;
using QXKORVAProtocol::CEventPto;

constexpr int kBatch = 64;  // alarms per iteration

std::atomic<long> g_writes{0};
double g_translateNsPerAlarm = 0;

// A stream connection that takes every byte and counts the writes.
class NullBackend : public korva::testing::IdleExchange {
  public:
    std::string url() const override { return "/KORVA/Event/notification/alertStream"; }
    int respond(const void*, int length) override {
        g_writes.fetch_add(1, std::memory_order_relaxed);
        return length;
    }
};

std::string alarmOf(const std::string& devIndex) {
    return R"({"EventNotificationAlert":{"devIndex":")" + devIndex +
           R"(","channelID":"1","dateTime":"2024-05-01T10:00:00+08:00","activePostCount":1,
           "eventType":"VMD","eventState":"active","eventDescription":"Motion alarm",
           "channelName":"Lobby","DetectionRegionList":[
           {"DetectionRegionEntry":{"regionID":"1","sensitivityLevel":50,
            "RegionCoordinatesList":[{"RegionCoordinates":{"positionX":10,"positionY":20}},
                                     {"RegionCoordinates":{"positionX":30,"positionY":40}}],
            "detectionTarget":"human","TargetRect":{"X":0.1,"Y":0.2,"width":0.3,"height":0.4}}},
           {"DetectionRegionEntry":{"regionID":"2","sensitivityLevel":60}}]}})";
}

double nsPerAlarm(std::chrono::steady_clock::duration elapsed, benchmark::State& state) {
    const double ns =
        static_cast<double>(std::chrono::duration_cast<std::chrono::nanoseconds>(elapsed).count());
    return ns / static_cast<double>(state.iterations() * kBatch);
}

void BM_Translate(benchmark::State& state) {
    const std::string text = alarmOf("dev-0");
    const auto start = std::chrono::steady_clock::now();
    for (auto _ : state) {
        for (int i = 0; i < kBatch; ++i) {
            Json::Value root;
            Json::Reader().parse(text.data(), text.data() + text.size(), root, false);
            std::string xml;
            QXKORVAProtocol::translateAlarm(root, &xml);
            benchmark::DoNotOptimize(xml);
        }
    }
    g_translateNsPerAlarm = nsPerAlarm(std::chrono::steady_clock::now() - start, state);
    state.SetItemsProcessed(state.iterations() * kBatch);
}

// A started service whose table holds `streams` open streams over `devices` devices.
struct FanOutSetup {
    FanOutSetup(int streams, int devices) {
        korva::host::useManualClock(1);  // no heartbeat or clean-up run during the benchmark
        service.start();
        for (int i = 0; i < streams; ++i) {
            auto backend = std::make_shared<NullBackend>();
            const int handle = QXHttpService::ExchangeRegistry::instance().add(backend);
            backends.push_back(backend);
            auto session = std::make_shared<CAlertStreamSession>(
                handle, i, "dev-" + std::to_string(i % devices));
            session->markOpen();
            service.streams().insert(session);
        }
        for (int d = 0; d < devices; ++d) alarms.push_back(alarmOf("dev-" + std::to_string(d)));
    }
    ~FanOutSetup() {
        service.stop();
        for (const auto& backend : backends) {
            QXHttpService::ExchangeRegistry::instance().remove(backend->handle());
        }
        korva::host::useRealClock();
    }

    CEventPto service;
    std::vector<std::shared_ptr<NullBackend>> backends;
    std::vector<std::string> alarms;
};

void BM_FanOut(benchmark::State& state) {
    const int streams = static_cast<int>(state.range(0));
    const int devices = streams == 1 ? 1 : streams / 2;
    const int perAlarm = streams / devices;
    FanOutSetup setup(streams, devices);
    size_t next = 0;
    long expected = g_writes.load();
    const auto start = std::chrono::steady_clock::now();
    for (auto _ : state) {
        for (int i = 0; i < kBatch; ++i) {
            const std::string& alarm = setup.alarms[next++ % setup.alarms.size()];
            CEventPto::fAlarmDataCallBack(alarm.data(), static_cast<int>(alarm.size()),
                                          &setup.service);
        }
        expected += static_cast<long>(kBatch) * perAlarm;
        while (g_writes.load(std::memory_order_relaxed) < expected) std::this_thread::yield();
    }
    const double ns = nsPerAlarm(std::chrono::steady_clock::now() - start, state);
    state.SetItemsProcessed(state.iterations() * kBatch);
    state.counters["parts_per_alarm"] = perAlarm;
    if (g_translateNsPerAlarm > 0) state.counters["x_translate"] = ns / g_translateNsPerAlarm;
}

}  // namespace

BENCHMARK(BM_Translate)->UseRealTime();
BENCHMARK(BM_FanOut)->ArgName("streams")->Arg(1)->Arg(2)->Arg(1000)->UseRealTime();

BENCHMARK_MAIN();
