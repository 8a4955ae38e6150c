// CRecordOperation: content search (recordings and their playback addresses).
// A posted CMSearchDescription becomes the gateway's JSON search; the device's JSON result
// becomes a CMSearchResult document whose playback addresses are rewritten into KORVA track
// addresses.
// Stateless: one instance per request or per answer conversion.
#pragma once

#include <json/value.h>

#include <string>

#include "plugin/relay/dev_cfg_base.h"

namespace QXKORVAProtocol {

// Recording metadata identifiers: the default of a search without a metadata list, and of a
// match that names no metadata.
inline constexpr const char* kTimedRecordingMetadata =
    "recordType.meta.korva-gateway.example/timing";
inline constexpr const char* kManualRecordingMetadata =
    "recordType.meta.korva-gateway.example/Manual";

class CRecordOperation : public CDevCfgBase {
  public:
    int matchURL(const std::string& url, unsigned char method) override;
    int covertRsp(std::string* xmlOut, const Json::Value& root, const std::string& url,
                  int method) override;
    int covertUrlandBody(std::string* jsonUrl, std::string* jsonBody,
                         const ExchangeHolder& exchange, const std::string& devIndex) override;

    // The JSON search description of an XML CMSearchDescription ("" when body is not XML; the
    // writer's "null" text when it holds no CMSearchDescription). body may be null.
    std::string covertSearchDescription(const char* body);

    // The CMSearchResult document of the device's answer; missing members take their defaults.
    // 0 converted, 9 when a member has a type that cannot be read (*xmlOut untouched).
    int covertSearchResultRsp(std::string* xmlOut, const Json::Value& root);

    // The KORVA track address of a gateway playback address; "" when the address does not
    // have the gateway's form, the address itself when its camera segment is not longer than
    // an identifier.
    static std::string covertPlaybackUri(const std::string& gatewayUri);

    // Replaces every "&amp;" by "&", repeatedly, so that a doubly escaped ampersand also ends
    // as a single "&".
    static void unescapeAmpersands(std::string* text);
};

}  // namespace QXKORVAProtocol
