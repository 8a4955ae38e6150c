// Device answers converted to KORVA documents by the device-resource handlers.
#include <gtest/gtest.h>

#include "gateway/hostlib/host_config.h"
#include "gateway/testing/harness.h"
#include "tests/plugin/device/device_test_support.h"

namespace korva::device_tests {
namespace {

std::string ok(const std::string& url) {
    return "ResponseStatus{requestURL=" + url + ",statusCode=1,statusString=OK,subStatusCode=ok}";
}

std::string ptzChannel(const std::string& members) {
    return R"({"PTZChannelList":[{"PTZChannel":{"id":1,"enabled":true,"serialNumber":2,)"
           R"("videoInputID":1)" +
           members + "}}]}";
}
const std::string kPtzHead =
    "PTZChannelList{PTZChannel{id=1,enabled=true,serialNumber=2,videoInputID=1";
const std::string kRs485 =
    R"("baudRate":9600,"dataBits":8,"parityType":"none","stopBits":"1","flowCtrl":"none")";
const std::string kDevInfo = "DeviceInfo{deviceName=";
const std::string kFixed = ",deviceDescription=IPCamera,model=QM-VT4407,";
std::string ioPort(const std::string& port) {
    return R"({"IOPortList":{"IOInputPortList":[{"IOInputPort":)" + port + "}]}}";
}

struct AnswerCase {
    Owner owner;
    unsigned char method;
    const char* url;
    std::string answer;
    int result;
    std::string tree;           // of the document; unchecked when the result is not 0
    const char* log = nullptr;  // logged at level 5 for a failure, 4 for a success
};
const std::string kInfo =
    R"("deviceID":"1","serialNumber":"S","macAddress":"M","firmwareVersion":"F","deviceType":"T")";

const AnswerCase kCases[] = {
    {kMaintain, GET, "/KORVA/System/deviceInfo",
     R"({"DeviceInfo":{"deviceName":"Lobby","deviceID":"88","deviceDescription":"Dome","model":"X",
         "serialNumber":"SN","macAddress":"aa","firmwareVersion":"V5",
         "firmwareReleasedDate":"2024","bootVersion":"B2","deviceType":"IPC"}})",
     0,
     kDevInfo + "Lobby,deviceID=88" + kFixed +
         "serialNumber=SN,macAddress=aa,firmwareVersion=V5,firmwareReleasedDate=2024,"
         "bootVersion=B2,deviceType=IPC}"},
    {kMaintain, GET, "/KORVA/System/deviceInfo",
     R"({"DeviceInfo":{"deviceName":null,"deviceID":"1","serialNumber":"S","macAddress":"M",
         "firmwareVersion":"F","bootVersion":7,"deviceType":"T"}})",
     0,
     kDevInfo + ",deviceID=1" + kFixed +
         "serialNumber=S,macAddress=M,firmwareVersion=F,deviceType=T}"},
    {kMaintain, GET, "/KORVA/System/Video/inputs/channels",
     R"({"VideoInputChannelList":[{"VideoInputChannel":{"id":"1","inputPort":"1","name":"Gate"}},
         {"VideoInputChannel":{"id":"7","inputPort":null,"name":3}}]})",
     0,
     "VideoInputChannelList{VideoInputChannel{id=1,inputPort=1,name=Gate},"
     "VideoInputChannel{id=7,inputPort=}}"},
    {kMaintain, GET, "/KORVA/System/deviceInfo", R"({"DeviceInfo":"text"})", 9, "",
     "covertDevinfoRsp fail 1."},
    {kMaintain, GET, "/KORVA/System/deviceInfo", R"({"DeviceInfo":{"deviceName":5,)" + kInfo + "}}",
     9, "", "covertDevinfoRsp fail 2."},
    {kMaintain, GET, "/KORVA/System/deviceInfo", R"({"DeviceInfo":{"deviceName":"n"}})", 9, "",
     "covertDevinfoRsp fail 3."},
    {kMaintain, GET, "/KORVA/System/Video/inputs/channels",
     R"({"VideoInputChannelList":[{"VideoInputChannel":{"id":1,"inputPort":"1"}}]})", 9, "",
     "covertVideoChannelRsp fail 4."},
    {kMaintain, GET, "/KORVA/System/Video/inputs/channels", R"({"VideoInputChannelList":0})", 0,
     "VideoInputChannelList=", "covertVideoChannelRsp fail 2 and return null list."},
    // Smart capabilities: the fixed key order, whatever the device's; booleans only.
    {kEvent, GET, "/KORVA/Smart/capabilities",
     R"({"SmartCap":{"isSupportLFPD":true,"extra":"x","isSupportHFPD":false,"isSupportROI":false}})",
     0, "SmartCap{isSupportROI=false,isSupportHFPD=false,isSupportLFPD=true}"},
    {kEvent, GET, "/KORVA/Smart/capabilities", R"({"SmartCap":{"isSupportROI":"true"}})", 9, ""},
    // I/O ports.
    {kEvent, GET, "/KORVA/System/IO",
     R"({"IOPortList":{"IOOutputPortList":[{"IOOutputPort":{"id":2,"enable":true,"name":"Siren",
         "triggering":"high"}}],"IOInputPortList":[{"IOInputPort":{"id":1,"enable":false,
         "triggering":"low","name":"Door"}},{"Unrelated":{}},{"IOInputPort":{"id":3.0,"enable":true}}]}})",
     0,
     "IOPortList{IOInputPortList{IOInputPort{id=1,enabled=false,triggering=low,name=Door},"
     "IOInputPort{id=3,enabled=true}},IOOutputPortList{IOOutputPort{id=2,enabled=true,name=Siren}}"
     "}"},
    {kEvent, GET, "/KORVA/System/IO",
     R"({"IOPortList":{"IOInputPortList":{},"IOOutputPortList":[]}})", 0,
     "IOPortList{IOInputPortList=,IOOutputPortList=}"},
    {kEvent, GET, "/KORVA/System/IO", ioPort(R"({"id":1})"), 9, ""},
    {kEvent, GET, "/KORVA/System/IO", ioPort(R"({"id":2147483648,"enable":true})"), 9, ""},
    {kEvent, GET, "/KORVA/System/IO", ioPort(R"({"id":1,"enable":true,"triggering":0})"), 9, ""},
    {kEvent, GET, "/KORVA/System/IO", R"({"IOPortList":"x"})", 9, ""},
    {kEvent, PUT, "/KORVA/System/IO/outputs/2/trigger", "{}", 0,
     ok("/KORVA/System/IO/outputs/2/trigger")},
    // PTZ channels.
    {kPtz, GET, "/KORVA/PTZCtrl/channels",
     ptzChannel(R"(,"panMaxSpeed":100,"tiltMaxSpeed":90,"presetSpeed":5,"autoPatrolSpeed":4,
         "keyBoardControlSpeed":3,"controlProtocol":"pelco","controlAddress":{"Address":"0",
         "enabled":false,"extra":1},"defaultPresetID":"1","PTZRs485Para":{)" +
                kRs485 + R"(},"manualControlSpeed":"fast","unknown":"dropped")"),
     0,
     kPtzHead +
         ",panMaxSpeed=100,tiltMaxSpeed=90,presetSpeed=5,autoPatrolSpeed=4,keyBoardControlSpeed=3,"
         "controlProtocol=pelco,controlAddress{enabled=false,Address=0},defaultPresetID=1,"
         "PTZRs485Para{baudRate=9600,dataBits=8,parityType=none,stopBits=1,flowCtrl=none},"
         "manualControlSpeed=fast}}"},
    {kPtz, GET, "/KORVA/PTZCtrl/channels", ptzChannel(R"(,"controlAddress":{"enabled":true})"), 0,
     kPtzHead + ",controlAddress{enabled=true}}}"},
    {kPtz, GET, "/KORVA/PTZCtrl/channels", R"({"PTZChannelList":{"PTZChannel":{}}})", 0,
     "PTZChannelList="},
    {kPtz, GET, "/KORVA/PTZCtrl/channels", ptzChannel(R"(,"panMaxSpeed":1.5)"), 9, ""},
    {kPtz, GET, "/KORVA/PTZCtrl/channels", ptzChannel(R"(,"controlAddress":{"Address":"1"})"), 9,
     ""},
    {kPtz, GET, "/KORVA/PTZCtrl/channels",
     ptzChannel(
         R"(,"PTZRs485Para":{"baudRate":9600,"dataBits":8,"parityType":"n","stopBits":"1"})"),
     9, ""},
    {kPtz, GET, "/KORVA/PTZCtrl/channels", R"({})", 9, ""},
    {kPtz, PUT, "/KORVA/PTZCtrl/channels/1/continuous", "{}", 0,
     ok("/KORVA/PTZCtrl/channels/1/continuous")},
    {kImage, GET, "/KORVA/Image/channels/7/capabilities", R"({"StreamingChannel":{"id":"701"}})", 0,
     "ImageChannel="},
};

TEST(DeviceAnswers, ConvertedDocumentsAndFailures) {
    for (const AnswerCase& c : kCases) {
        SCOPED_TRACE(std::string(c.url) + " " + c.answer);
        korva::testing::LogCapture log;
        std::string xml = "untouched";
        EXPECT_EQ(c.result, makeHandler(c.owner)->covertRsp(&xml, json(c.answer), c.url, c.method));
        if (c.log != nullptr) {
            EXPECT_TRUE(log.contains(c.log, c.result == 0 ? 4 : 5));
            EXPECT_TRUE(log.contains("[QXKORVAProtocol::CDevMaintain::covert"));
        }
        if (c.result != 0) {
            EXPECT_EQ("untouched", xml);
            continue;
        }
        EXPECT_EQ(c.tree, tree(xml));
        if (!c.tree.starts_with("ResponseStatus")) {
            EXPECT_EQ(0u, xml.rfind(kDeclaration, 0));
        }
    }
}

TEST(DeviceAnswers, FixedDocumentsByteForByteWhateverTheDeviceSays) {
    const std::string gap(20, ' ');
    const std::string storage =
        kDeclaration + gap +
        R"(<hddList version="1.0" xmlns="http://www.korva-gateway.example/ver10/XMLSchema"  size="8">)" +
        gap + R"(<hdd  version="2.0" xmlns="http://www.korva-gateway.example/ver20/XMLSchema">)" +
        gap + "<id>1</id>" + gap + "<hddName>hdde</hddName>" + gap + "<hddPath></hddPath>" + gap +
        "<hddType>SATA</hddType>" + gap + "<status>ok</status>" + gap +
        "<capacity>121942</capacity>" + gap + "<freeSpace>87296</freeSpace>" + gap +
        "<property>RW</property>" + gap + "<property>RW</property>" + gap + "</hdd>" + gap +
        "</hddList>";
    const std::string deviceCap =
        std::string(kDeclaration) +
        R"(<DeviceCap version = "2.0"><SysCap><IOCap  version = "2.0"></IOCap></SysCap></DeviceCap>)";
    for (const char* answer : {"{}", R"({"SmartCap":{"isSupportROI":true}})", "[1,2]"}) {
        std::string xml;
        EXPECT_EQ(0, makeHandler(kMaintain)->covertRsp(&xml, json(answer),
                                                       "/KORVA/ContentMgmt/Storage/hdd", GET));
        EXPECT_EQ(storage, xml);
        EXPECT_EQ(0, makeHandler(kEvent)->covertRsp(&xml, json(answer),
                                                    "/KORVA/System/capabilities", GET));
        EXPECT_EQ(deviceCap, xml);
    }
    std::string xml;
    EXPECT_EQ(0, makeHandler(kEvent)->covertRsp(&xml, json("{}"), "/KORVA/System/IO", GET));
    EXPECT_EQ(std::string::npos, xml.find('<', 1)) << "declaration only: " << xml;
}

TEST(DeviceAnswers, AdminAccessesComeFromTheNetworkConfiguration) {
    QXConfigMgr::NetworkPorts local, mapped;
    local.httpPort = 8000, local.rtspPort = 10554, local.httpsPort = 65535;
    mapped.portMapping = true, mapped.httpsEnabled = false;
    mapped.extHttpPort = 18080, mapped.extRtspPort = 18554, mapped.extHttpsPort = 18443;
    auto expected = [](const char* http, const char* rtsp, const char* https, const char* port) {
        const std::string a = "AdminAccessProtocol{id=";
        return "AdminAccessProtocolList{" + a + "1,enabled=true,protocol=HTTP,portNo=" + http +
               "}," + a + "2,enabled=true,protocol=RTSP,portNo=" + rtsp + "}," + a +
               "3,enabled=" + https + ",protocol=HTTPS,portNo=" + port + "}}";
    };
    const struct {
        std::optional<QXConfigMgr::NetworkPorts> ports;
        int result;
        std::string tree;
    } cases[] = {{local, 0, expected("8000", "10554", "true", "65535")},
                 {mapped, 0, expected("18080", "18554", "false", "18443")},
                 {std::nullopt, 9, ""}};
    for (const auto& c : cases) {
        korva::host::setNetworkConfig(c.ports);
        korva::testing::LogCapture log;
        std::string xml;
        EXPECT_EQ(c.result, makeHandler(kMaintain)->covertRsp(
                                &xml, json("{}"), "/KORVA/Security/adminAccesses", GET));
        EXPECT_EQ(c.tree, tree(xml));
        EXPECT_EQ(c.result == 9, log.contains("get networkCfg ptr error.", 5));
    }
    korva::host::setNetworkConfig(QXConfigMgr::NetworkPorts{});
}

}  // namespace
}  // namespace korva::device_tests
