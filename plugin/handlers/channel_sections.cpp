// Video and Audio sections of a StreamingChannel document, both directions.
//
// The two directions do not carry the same fields: constantBitRate only travels to the device,
// VoiceChanger only comes back from it, audioSamplingRate goes out as an integer and comes back
// as "%lf" text, and smoothing is written back only from 1 to 100.
#include "plugin/handlers/channel_sections.h"

#include "plugin/handlers/channel_cfg.h"
#include "plugin/pipeline/error_catalogue.h"

namespace QXKORVAProtocol {
namespace channel {
namespace {

using enum Rule;

constexpr Field kSvcFields[] = {
    boolean("enabled", kRequired, kRequired),
    text("SVCMode", kOptional, kOptional),
};
constexpr Section kSvc{kSvcFields};

constexpr Field kSmartCodecFields[] = {
    boolean("enabled", kRequired, kRequired),
};
constexpr Section kSmartCodec{kSmartCodecFields};

// Children of Video, in document order.
constexpr Field kVideoFields[] = {
    boolean("enabled", kRequired, kRequired),
    text("videoInputChannelID", kRequired, kRequired),
    anyText("videoCodecType", kRequired, kRequired),
    text("videoScanType", kOptional, kOptional),
    integer("videoResolutionWidth", kRequired, kRequired),
    integer("videoResolutionHeight", kRequired, kRequired),
    text("videoResolutionName", kOptional, kOptional),
    integer("videoPositionX", kOptional, kOptional),
    integer("videoPositionY", kOptional, kOptional),
    text("videoQualityControlType", kOptional, kOptional),
    integer("constantBitRate", kOptional, kNever),
    integer("fixedQuality", kOptional, kOptional),
    integer("vbrUpperCap", kOptional, kOptional),
    integer("vbrLowerCap", kOptional, kOptional),
    integer("maxFrameRate", kRequired, kRequired),
    integer("keyFrameInterval", kOptional, kOptional),
    integer("rotationDegree", kOptional, kOptional),
    boolean("mirrorEnabled", kOptional, kOptional),
    text("snapShotImageType", kOptional, kOptional),
    text("Mpeg4Profile", kOptional, kOptional),
    text("H264Profile", kOptional, kOptional),
    text("SVACProfile", kOptional, kOptional),
    integer("GovLength", kOptional, kOptional),
    section("SVC", kOptional, kOptional, &kSvc),
    text("PacketType", kOptional, kOptional),
    integer("smoothing", kOptional, kOptional, 1, 100),
    text("H265Profile", kOptional, kOptional),
    section("SmartCodec", kOptional, kOptional, &kSmartCodec),
    integer("vbrAverageCap", kOptional, kOptional),
};
constexpr Section kVideo{kVideoFields};

constexpr Field kVoiceChangerFields[] = {
    boolean("enabled", kNever, kRequired),
    integer("level", kNever, kRequired, -12, 12),
};
constexpr Section kVoiceChanger{kVoiceChangerFields};

// Children of Audio, in document order.
constexpr Field kAudioFields[] = {
    boolean("enabled", kRequired, kRequired),
    text("audioInputChannelID", kRequired, kRequired),
    text("audioCompressionType", kRequired, kRequired),
    text("audioInboundCompressionType", kOptional, kOptional),
    integer("audioBitRate", kOptional, kOptional),
    numberText("audioSamplingRate", kOptional, kOptional),
    integer("audioResolution", kOptional, kOptional),
    section("VoiceChanger", kNever, kOptional, &kVoiceChanger),
};
constexpr Section kAudio{kAudioFields};

}  // namespace

constexpr CustomSection kVideoSection{
    &CChannelCfg::getJsonVideo,
    [](const Json::Value& value) { return checkFields(kVideo, value); },
    &CChannelCfg::getXmlVideo,
};
constexpr CustomSection kAudioSection{
    &CChannelCfg::getJsonAudio,
    [](const Json::Value& value) { return checkFields(kAudio, value); },
    &CChannelCfg::getXmlAudio,
};

}  // namespace channel

int CChannelCfg::getJsonVideo(Json::Value* out, QXBase::CXmlBase& xml) {
    return channel::readSection(channel::kVideo, xml, out);
}

int CChannelCfg::getJsonAudio(Json::Value* out, QXBase::CXmlBase& xml) {
    return channel::readSection(channel::kAudio, xml, out);
}

int CChannelCfg::getXmlVideo(QXBase::CXmlBase& xml, const Json::Value& video) {
    return channel::writeSection(channel::kVideo, "Video", xml, video);
}

int CChannelCfg::getXmlAudio(QXBase::CXmlBase& xml, const Json::Value& audio) {
    return channel::writeSection(channel::kAudio, "Audio", xml, audio);
}

}  // namespace QXKORVAProtocol
