// Each conversion of the plug-in next to its baseline, in the same binary and run.
//
// Inputs are the built-in camera's own answers (korva::sim::SimCamera with a fixed clock), so
// the content is what the gateway converts under load:
//   DeviceInfo     the device-information answer JSON -> DeviceInfo XML (answer chain)
//   ChannelGet     streaming channel 101's answer JSON -> StreamingChannel XML (answer chain)
//   ChannelPut     that StreamingChannel XML -> the gateway JSON request body (request side)
//   Alarm          one alarm's JSON -> EventNotificationAlert XML (alarm translation)
// Each plug-in case parses its input as the plug-in does (a new Json::Reader per document) and
// runs the converter. Its baseline does the same work with the libraries alone: JsonCpp parse
// and a generic pugixml build and serialise of the same content (for XML -> JSON: pugixml parse
// and a generic JsonCpp build and compact write). Baselines are registered first; each plug-in
// case reports "x_baseline", its CPU time per document over its baseline's in the same run.
#include <benchmark/benchmark.h>
#include <json/reader.h>
#include <json/writer.h>

#include <ctime>
#include <map>
#include <pugixml.hpp>
#include <sstream>
#include <string>

#include "gateway/sim/sim_camera.h"
#include "host/http_exchange.h"
#include "plugin/alert/alarm_translation.h"
#include "plugin/handlers/channel_cfg.h"
#include "plugin/relay/dev_cfg_base.h"

namespace {

using QXKORVAProtocol::CChannelCfg;
using QXKORVAProtocol::CDevCfgBase;

constexpr const char* kDeviceInfoUrl = "/KORVA/System/deviceInfo";
constexpr const char* kChannelUrl = "/KORVA/Streaming/channels/101";

std::string cameraAnswer(int method, const std::string& path) {
    static korva::sim::SimCamera camera("cam-1", 1714550400);
    korva::host::DeviceRequest request;
    request.method = method;
    request.path = path;
    request.devIndex = "cam-1";
    request.url = path + "?format=json&devIndex=cam-1";
    return camera.answer(request);
}

const std::string& alarmText() {
    static const std::string text =
        R"({"EventNotificationAlert":{"devIndex":"cam-1","channelID":"1",
        "dateTime":"2024-05-01T10:00:00+08:00","activePostCount":1,"eventType":"VMD",
        "eventState":"active","eventDescription":"Motion alarm","channelName":"Lobby",
        "DetectionRegionList":[{"DetectionRegionEntry":{"regionID":"1","sensitivityLevel":50,
        "RegionCoordinatesList":[{"RegionCoordinates":{"positionX":10,"positionY":20}},
        {"RegionCoordinates":{"positionX":30,"positionY":40}}],"detectionTarget":"human",
        "TargetRect":{"X":0.1,"Y":0.2,"width":0.3,"height":0.4}}}]}})";
    return text;
}

Json::Value parse(const std::string& text) {
    Json::Value root;
    Json::Reader reader;
    reader.parse(text.data(), text.data() + text.size(), root, false);
    return root;
}

// ---- baselines ----

// Members as elements, list elements as children of the list's element, scalars as text.
void jsonToXml(const Json::Value& value, pugi::xml_node node) {
    if (value.isObject()) {
        for (auto it = value.begin(); it != value.end(); ++it) {
            jsonToXml(*it, node.append_child(it.name().c_str()));
        }
    } else if (value.isArray()) {
        for (const Json::Value& element : value) jsonToXml(element, node);
    } else if (!value.isNull()) {
        node.text().set(value.asString().c_str());
    }
}

std::string baselineJsonToXml(const std::string& json, bool declaration) {
    const Json::Value root = parse(json);
    pugi::xml_document doc;
    if (declaration) {
        pugi::xml_node decl = doc.append_child(pugi::node_declaration);
        decl.append_attribute("version") = "1.0";
        decl.append_attribute("encoding") = "UTF-8";
    }
    jsonToXml(root, doc);
    std::ostringstream out;
    doc.save(
        out, "  ",
        declaration ? pugi::format_default : pugi::format_default | pugi::format_no_declaration);
    return out.str();
}

// Elements with element children as objects ("...List" elements as arrays of one-member
// objects), leaves as strings.
Json::Value xmlToJson(pugi::xml_node node) {
    const std::string name = node.name();
    const bool list = name.size() > 4 && name.compare(name.size() - 4, 4, "List") == 0;
    Json::Value value(list ? Json::arrayValue : Json::objectValue);
    bool hasChildren = false;
    for (pugi::xml_node child : node.children()) {
        if (child.type() != pugi::node_element) continue;
        hasChildren = true;
        if (list) {
            Json::Value entry(Json::objectValue);
            entry[child.name()] = xmlToJson(child);
            value.append(entry);
        } else {
            value[child.name()] = xmlToJson(child);
        }
    }
    return hasChildren || list ? value : Json::Value(node.text().get());
}

std::string baselineXmlToJson(const std::string& xml, const Json::StreamWriterBuilder& builder) {
    pugi::xml_document doc;
    doc.load_buffer(xml.data(), xml.size());
    Json::Value root(Json::objectValue);
    root[doc.document_element().name()] = xmlToJson(doc.document_element());
    return Json::writeString(builder, root) + "\n";
}

// ---- the plug-in ----

std::string pluginAnswer(const std::string& json, const char* url) {
    const Json::Value root = parse(json);
    std::string xml;
    if (CDevCfgBase::covertRspChain(&xml, root, url, QXHttpService::kMethodGet) != 0) return {};
    return xml;
}

std::string pluginPutBody(const std::string& xml) {
    std::string url, body;
    if (CChannelCfg::covertChannelIDUrlandBody(&url, &body, kChannelUrl, QXHttpService::kMethodPut,
                                               xml.c_str(), "cam-1") != 0) {
        return {};
    }
    return body;
}

std::string pluginAlarm(const std::string& json) {
    const Json::Value root = parse(json);
    std::string xml;
    if (!QXKORVAProtocol::translateAlarm(root, &xml)) return {};
    return xml;
}

// ---- cases ----

std::map<std::string, double>& baselineNs() {
    static std::map<std::string, double> ns;
    return ns;
}

// CPU time of the calling thread: the ratios hold on a busy machine better than wall time.
double threadCpuNs() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

// Runs convert on every iteration; a baseline stores its time per document, a plug-in case
// reports its ratio to the stored baseline of the same name.
template <typename Convert>
void run(benchmark::State& state, const std::string& name, bool baseline, Convert convert) {
    const std::string first = convert();
    if (first.empty()) {
        state.SkipWithError("the conversion failed on the benchmark's input");
        return;
    }
    const double start = threadCpuNs();
    for (auto _ : state) {
        std::string out = convert();
        benchmark::DoNotOptimize(out);
    }
    const double ns = (threadCpuNs() - start) / static_cast<double>(state.iterations());
    state.counters["out_bytes"] = static_cast<double>(first.size());
    if (baseline) {
        baselineNs()[name] = ns;
    } else if (baselineNs().count(name)) {
        state.counters["x_baseline"] = ns / baselineNs()[name];
    }
}

const std::string& deviceInfoJson() {
    static const std::string text = cameraAnswer(0, kDeviceInfoUrl);
    return text;
}
const std::string& channelJson() {
    static const std::string text = cameraAnswer(0, kChannelUrl);
    return text;
}
const std::string& channelXml() {
    static const std::string text = pluginAnswer(channelJson(), kChannelUrl);
    return text;
}

void BM_DeviceInfo_Baseline(benchmark::State& state) {
    run(state, "DeviceInfo", true, [] { return baselineJsonToXml(deviceInfoJson(), true); });
}
void BM_DeviceInfo_Plugin(benchmark::State& state) {
    run(state, "DeviceInfo", false, [] { return pluginAnswer(deviceInfoJson(), kDeviceInfoUrl); });
}
void BM_ChannelGet_Baseline(benchmark::State& state) {
    run(state, "ChannelGet", true, [] { return baselineJsonToXml(channelJson(), false); });
}
void BM_ChannelGet_Plugin(benchmark::State& state) {
    run(state, "ChannelGet", false, [] { return pluginAnswer(channelJson(), kChannelUrl); });
}
void BM_ChannelPut_Baseline(benchmark::State& state) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    run(state, "ChannelPut", true, [&] { return baselineXmlToJson(channelXml(), builder); });
}
void BM_ChannelPut_Plugin(benchmark::State& state) {
    run(state, "ChannelPut", false, [] { return pluginPutBody(channelXml()); });
}
void BM_Alarm_Baseline(benchmark::State& state) {
    run(state, "Alarm", true, [] { return baselineJsonToXml(alarmText(), false); });
}
void BM_Alarm_Plugin(benchmark::State& state) {
    run(state, "Alarm", false, [] { return pluginAlarm(alarmText()); });
}

BENCHMARK(BM_DeviceInfo_Baseline);
BENCHMARK(BM_DeviceInfo_Plugin);
BENCHMARK(BM_ChannelGet_Baseline);
BENCHMARK(BM_ChannelGet_Plugin);
BENCHMARK(BM_ChannelPut_Baseline);
BENCHMARK(BM_ChannelPut_Plugin);
BENCHMARK(BM_Alarm_Baseline);
BENCHMARK(BM_Alarm_Plugin);

}  // namespace

BENCHMARK_MAIN();
