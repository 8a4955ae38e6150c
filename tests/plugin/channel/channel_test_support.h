// Streaming channel test helpers: JSON edits by member path, XML as (path, text) pairs.
#pragma once

#include <gtest/gtest.h>
#include <json/reader.h>
#include <json/value.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/xml_base.h"

namespace channel_test {

inline Json::Value parseJson(const std::string& text) {
    Json::Value value;
    EXPECT_TRUE(Json::Reader().parse(text, value)) << "bad JSON in test:\n" << text;
    return value;
}

using MemberPath = std::vector<std::string>;

// The member at path, created on the way.
inline Json::Value& at(Json::Value& root, const MemberPath& path) {
    Json::Value* node = &root;
    for (const std::string& name : path) node = &(*node)[name];
    return *node;
}

inline Json::Value withMember(Json::Value root, const MemberPath& path, Json::Value value) {
    at(root, path) = std::move(value);
    return root;
}

inline Json::Value withoutMember(Json::Value root, const MemberPath& path) {
    at(root, MemberPath(path.begin(), path.end() - 1)).removeMember(path.back());
    return root;
}

// Every element as ("/Root/Child", text) in document order; nullopt when not XML.
using XmlEntries = std::vector<std::pair<std::string, std::string>>;

inline void flattenLevel(QXBase::CXmlBase& xml, const std::string& prefix, XmlEntries* out) {
    while (xml.NextSibElem()) {
        const std::string path = prefix + "/" + xml.GetTagName();
        out->emplace_back(path, xml.GetData());
        xml.IntoElem();
        flattenLevel(xml, path, out);
        xml.OutOfElem();
    }
}

inline std::optional<XmlEntries> flatten(const std::string& text) {
    QXBase::CXmlBase xml;
    if (!xml.Parse(text)) return std::nullopt;
    XmlEntries entries;
    flattenLevel(xml, "", &entries);
    return entries;
}

inline XmlEntries entriesOf(const std::string& text) {
    auto entries = flatten(text);
    if (!entries) ADD_FAILURE() << "not XML:\n" << text;
    return entries.value_or(XmlEntries{});
}

inline std::optional<std::string> textAt(const std::string& xmlText, const std::string& path) {
    for (const auto& [entryPath, text] : flatten(xmlText).value_or(XmlEntries{})) {
        if (entryPath == path) return text;
    }
    return std::nullopt;
}

// A StreamingChannel document that carries every element, in document order.
inline const char* fullChannelXml() {
    return R"(<?xml version="1.0" encoding="UTF-8"?>
<StreamingChannel version="2.0">
<id>101</id><channelName>Lobby main</channelName><enabled>true</enabled>
<Transport><maxPacketSize>1446</maxPacketSize><audioPacketLength>0</audioPacketLength>
<audioInboundPacketLength>320</audioInboundPacketLength><audioInboundPortNo>5000</audioInboundPortNo>
<videoSourcePortNo>8200</videoSourcePortNo><audioSourcePortNo>8202</audioSourcePortNo>
<ControlProtocolList><ControlProtocol><streamingTransport>RTSP</streamingTransport></ControlProtocol>
<ControlProtocol><streamingTransport>HTTP</streamingTransport></ControlProtocol></ControlProtocolList>
<Unicast><enabled>true</enabled><interfaceID>eth0</interfaceID><rtpTransportType>RTP/TCP</rtpTransportType></Unicast>
<Multicast><enabled>false</enabled><userTriggerThreshold>3</userTriggerThreshold>
<destIPAddress>239.1.1.1</destIPAddress><videoDestPortNo>8600</videoDestPortNo>
<audioDestPortNo>8602</audioDestPortNo><destIPv6Address>ff05::1</destIPv6Address><ttl>16</ttl></Multicast>
<Security><enabled>true</enabled><certificateType>digest</certificateType></Security></Transport>
<Video><enabled>true</enabled><videoInputChannelID>1</videoInputChannelID>
<videoCodecType>H.265</videoCodecType><videoScanType>progressive</videoScanType>
<videoResolutionWidth>1920</videoResolutionWidth><videoResolutionHeight>1080</videoResolutionHeight>
<videoResolutionName>1080P</videoResolutionName><videoPositionX>0</videoPositionX>
<videoPositionY>-4</videoPositionY><videoQualityControlType>VBR</videoQualityControlType>
<constantBitRate>4096</constantBitRate><fixedQuality>60</fixedQuality><vbrUpperCap>6144</vbrUpperCap>
<vbrLowerCap>32</vbrLowerCap><maxFrameRate>2500</maxFrameRate><keyFrameInterval>50</keyFrameInterval>
<rotationDegree>90</rotationDegree><mirrorEnabled>false</mirrorEnabled>
<snapShotImageType>JPEG</snapShotImageType><Mpeg4Profile>SP</Mpeg4Profile><H264Profile>Main</H264Profile>
<SVACProfile>Baseline</SVACProfile><GovLength>50</GovLength>
<SVC><enabled>true</enabled><SVCMode>auto</SVCMode></SVC><PacketType>PS</PacketType>
<smoothing>50</smoothing><H265Profile>Main</H265Profile><SmartCodec><enabled>false</enabled></SmartCodec>
<vbrAverageCap>3072</vbrAverageCap></Video>
<Audio><enabled>true</enabled><audioInputChannelID>1</audioInputChannelID>
<audioCompressionType>G.711ulaw</audioCompressionType>
<audioInboundCompressionType>G.711alaw</audioInboundCompressionType><audioBitRate>64</audioBitRate>
<audioSamplingRate>16</audioSamplingRate><audioResolution>16</audioResolution></Audio>
<enableCABAC>true</enableCABAC><subStreamRecStatus>false</subStreamRecStatus>
<customStreamEnable>true</customStreamEnable>
</StreamingChannel>
)";
}

// The JSON the gateway receives for fullChannelXml().
inline const char* fullChannelJson() {
    return R"({"StreamingChannel":{"id":"101","channelName":"Lobby main","enabled":true,
"Transport":{"maxPacketSize":1446,"audioPacketLength":0,"audioInboundPacketLength":320,
"audioInboundPortNo":5000,"videoSourcePortNo":8200,"audioSourcePortNo":8202,
"ControlProtocolList":[{"ControlProtocol":{"streamingTransport":"RTSP"}},
{"ControlProtocol":{"streamingTransport":"HTTP"}}],"Unicast":{"enabled":true,"interfaceID":"eth0",
"rtpTransportType":"RTP/TCP"},"Multicast":{"enabled":false,"userTriggerThreshold":3,
"destIPAddress":"239.1.1.1","videoDestPortNo":8600,"audioDestPortNo":8602,
"destIPv6Address":"ff05::1","ttl":16},"Security":{"enabled":true,"certificateType":"digest"}},
"Video":{"enabled":true,"videoInputChannelID":"1","videoCodecType":"H.265",
"videoScanType":"progressive","videoResolutionWidth":1920,"videoResolutionHeight":1080,
"videoResolutionName":"1080P","videoPositionX":0,"videoPositionY":-4,
"videoQualityControlType":"VBR","constantBitRate":4096,"fixedQuality":60,"vbrUpperCap":6144,
"vbrLowerCap":32,"maxFrameRate":2500,"keyFrameInterval":50,"rotationDegree":90,
"mirrorEnabled":false,"snapShotImageType":"JPEG","Mpeg4Profile":"SP","H264Profile":"Main",
"SVACProfile":"Baseline","GovLength":50,"SVC":{"enabled":true,"SVCMode":"auto"},"PacketType":"PS",
"smoothing":50,"H265Profile":"Main","SmartCodec":{"enabled":false},"vbrAverageCap":3072},
"Audio":{"enabled":true,"audioInputChannelID":"1","audioCompressionType":"G.711ulaw",
"audioInboundCompressionType":"G.711alaw","audioBitRate":64,"audioSamplingRate":16,
"audioResolution":16},"enableCABAC":true,"subStreamRecStatus":false,"customStreamEnable":true}})";
}

// A device answer with only the required members.
inline Json::Value minimalAnswer() {
    return parseJson(R"({"StreamingChannel":{"id":"101","channelName":"Lobby","enabled":true,
        "Transport":{"ControlProtocolList":[{"ControlProtocol":{"streamingTransport":"RTSP"}}]},
        "Video":{"enabled":true,"videoInputChannelID":"1","videoCodecType":"H.264",
                 "videoResolutionWidth":1920,"videoResolutionHeight":1080,"maxFrameRate":2500},
        "Audio":{"enabled":false,"audioInputChannelID":"1","audioCompressionType":"AAC"}}})");
}

}  // namespace channel_test
