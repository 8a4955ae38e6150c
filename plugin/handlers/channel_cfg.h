// CChannelCfg: streaming channel resources of a device.
//
// Routes (the path before any query; "%d" is one decimal integer):
//   /KORVA/Streaming/channels/%d and /Streaming/channels/%d   GET, PUT  one streaming channel
//   /KORVA/Streaming/channels                                  GET       the channel list
//   /KORVA/Streaming/channels/%d/capabilities                  GET       the fixed capabilities
//   /KORVA/System/Audio/channels                               GET       audio channels, derived
//                                                                        from the video inputs
// Requests become gateway JSON requests (URL "...?format=json&devIndex=<device>", and for a PUT
// a JSON body); device answers become KORVA XML documents.
//
// Results of every operation: 0 done, -1 (kResultNotMine) not this handler's request, method or
// answer, 9 (kResultConvertFailed) conversion failed. A failed conversion produces no output.
//
// Stateless: one instance per request or per answer conversion; the static operations are pure
// functions of their arguments and may run on any thread.
#pragma once

#include <json/value.h>

#include <string>

#include "host/xml_base.h"
#include "plugin/relay/dev_cfg_base.h"

namespace QXKORVAProtocol {

class CChannelCfg : public CDevCfgBase {
  public:
    int matchURL(const std::string& url, unsigned char method) override;
    int covertRsp(std::string* xmlOut, const Json::Value& root, const std::string& url,
                  int method) override;
    int covertUrlandBody(std::string* jsonUrl, std::string* jsonBody,
                         const ExchangeHolder& exchange, const std::string& devIndex) override;

    // Request side of the channel route (the other routes relay their gateway resource with no
    // body). url is the request target, body the request body (may be null), devIndex the device
    // bound to the account. jsonUrl is emptied when it cannot be composed (for instance a device
    // index too long for the gateway's URL buffer).
    static int covertChannelIDUrlandBody(std::string* jsonUrl, std::string* jsonBody,
                                         const std::string& url, int method, const char* body,
                                         const std::string& devIndex);

    // Channel number of a KORVA URL to streaming channel id: n <= 100 names a channel and
    // addresses its first stream (n * 100 + 1, kept inside the 32-bit range); n > 100 already
    // is a streaming channel id.
    static int translateChannelNumber(int channel);

    // Answer side, one per route (the list uses getXmlStreamingChannelList directly).
    static int covertChannelIDRspBody(std::string* xmlOut, const Json::Value& root,
                                      const std::string& url, int method);
    static int covertChannelIDCapRspBody(std::string* xmlOut, const Json::Value& root, int method);
    // The fixed capability document; 9 when the answer has no member "StreamingChannel".
    static int getXmlChannelCapabilities(std::string* xmlOut, const Json::Value& root);
    // One AudioChannel per element of the answer's "VideoInputChannelList"; a null answer
    // gives one channel; an answer without that member gives 9.
    static int getXmlAudioChannelList(std::string* xmlOut, const Json::Value& root);

    // StreamingChannel XML text -> compact JSON text {"StreamingChannel":{...}} with a final
    // line feed.
    static int getJsonStreamingChannel(std::string* jsonText, const std::string& xmlText);
    // {"StreamingChannel":{...}} -> StreamingChannel XML text (no declaration).
    static int getXmlStreamingChannel(std::string* xmlText, const Json::Value& root);
    // {"StreamingChannelList":[...]} -> StreamingChannelList text holding streams 01 and 02 of
    // each channel; an element that fails to convert ends the list early (still a success).
    static int getXmlStreamingChannelList(std::string* xmlText, const Json::Value& root);

    // Section readers: the cursor of xml is inside the section element; *out becomes an object.
    static int getJsonTransport(Json::Value* out, QXBase::CXmlBase& xml);
    static int getJsonVideo(Json::Value* out, QXBase::CXmlBase& xml);
    static int getJsonAudio(Json::Value* out, QXBase::CXmlBase& xml);

    // Section writers: xml is positioned inside StreamingChannel; the section element is
    // appended and closed. On failure xml holds a partial section and must be dropped.
    static int getXmlTransport(QXBase::CXmlBase& xml, const Json::Value& transport);
    static int getXmlVideo(QXBase::CXmlBase& xml, const Json::Value& video);
    static int getXmlAudio(QXBase::CXmlBase& xml, const Json::Value& audio);
};

}  // namespace QXKORVAProtocol
