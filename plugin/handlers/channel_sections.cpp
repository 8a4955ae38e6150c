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
    text("SVCMode", kOptional, kWhenTyped),
};

constexpr Field kSmartCodecFields[] = {
    boolean("enabled", kRequired, kRequired),
};

// Children of Video, in document order.
constexpr Field kVideoFields[] = {
    boolean("enabled", kRequired, kRequired),
    text("videoInputChannelID", kRequired, kRequired),
    anyText("videoCodecType", kRequired, kRequired),
    text("videoScanType", kOptional, kWhenTyped),
    integer("videoResolutionWidth", kRequired, kRequired),
    integer("videoResolutionHeight", kRequired, kRequired),
    text("videoResolutionName", kOptional, kWhenTyped),
    integer("videoPositionX", kOptional, kWhenTyped),
    integer("videoPositionY", kOptional, kWhenTyped),
    text("videoQualityControlType", kOptional, kWhenTyped),
    integer("constantBitRate", kOptional, kNever),
    integer("fixedQuality", kOptional, kWhenTyped),
    integer("vbrUpperCap", kOptional, kWhenTyped),
    integer("vbrLowerCap", kOptional, kWhenTyped),
    integer("maxFrameRate", kRequired, kRequired),
    integer("keyFrameInterval", kOptional, kWhenTyped),
    integer("rotationDegree", kOptional, kWhenTyped),
    boolean("mirrorEnabled", kOptional, kWhenTyped),
    text("snapShotImageType", kOptional, kWhenTyped),
    text("Mpeg4Profile", kOptional, kWhenTyped),
    text("H264Profile", kOptional, kWhenTyped),
    text("SVACProfile", kOptional, kWhenTyped),
    integer("GovLength", kOptional, kWhenTyped),
    section("SVC", kOptional, kOptional, kSvcFields),
    text("PacketType", kOptional, kWhenTyped),
    integer("smoothing", kOptional, kWhenTyped, 1, 100),
    text("H265Profile", kOptional, kWhenTyped),
    section("SmartCodec", kOptional, kOptional, kSmartCodecFields),
    integer("vbrAverageCap", kOptional, kWhenTyped),
};

constexpr Field kVoiceChangerFields[] = {
    boolean("enabled", kNever, kRequired),
    integer("level", kNever, kRequired, -12, 12),
};

// Children of Audio, in document order.
constexpr Field kAudioFields[] = {
    boolean("enabled", kRequired, kRequired),
    text("audioInputChannelID", kRequired, kRequired),
    text("audioCompressionType", kRequired, kRequired),
    text("audioInboundCompressionType", kOptional, kWhenTyped),
    integer("audioBitRate", kOptional, kWhenTyped),
    numberText("audioSamplingRate", kOptional, kWhenTyped),
    integer("audioResolution", kOptional, kWhenTyped),
    section("VoiceChanger", kNever, kOptional, kVoiceChangerFields),
};

}  // namespace

// Video and Audio are written and read by the handler's section operations.
constexpr CustomField kVideoSection{&CChannelCfg::getJsonVideo, &CChannelCfg::getXmlVideo};
constexpr CustomField kAudioSection{&CChannelCfg::getJsonAudio, &CChannelCfg::getXmlAudio};

}  // namespace channel

int CChannelCfg::getJsonVideo(Json::Value* out, QXBase::CXmlBase& xml) {
    return fields::readObject(xml, channel::kVideoFields, out) ? kResultOk : kResultConvertFailed;
}

int CChannelCfg::getJsonAudio(Json::Value* out, QXBase::CXmlBase& xml) {
    return fields::readObject(xml, channel::kAudioFields, out) ? kResultOk : kResultConvertFailed;
}

int CChannelCfg::getXmlVideo(QXBase::CXmlBase& xml, const Json::Value& video) {
    return fields::writeObject(xml, "Video", channel::kVideoFields, video) ? kResultOk
                                                                           : kResultConvertFailed;
}

int CChannelCfg::getXmlAudio(QXBase::CXmlBase& xml, const Json::Value& audio) {
    return fields::writeObject(xml, "Audio", channel::kAudioFields, audio) ? kResultOk
                                                                           : kResultConvertFailed;
}

}  // namespace QXKORVAProtocol
