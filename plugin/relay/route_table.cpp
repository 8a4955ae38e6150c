#include "plugin/relay/route_table.h"

#include <cctype>
#include <string_view>

#include "host/kvl_runtime.h"
#include "host/restful_protocol.h"
#include "plugin/pipeline/error_catalogue.h"
#include "plugin/relay/gateway_url.h"

namespace QXKORVAProtocol {

bool routePathMatches(const std::string& url, const char* pattern) {
    const std::string_view view(pattern);
    int fields = 0;
    for (size_t at = view.find("%d"); at != std::string_view::npos; at = view.find("%d", at + 2)) {
        ++fields;
    }
    return (fields == 0 ? QXBase::CRESTfulProtocol::cmpURL(url, pattern)
                        : QXBase::CRESTfulProtocol::cmpURLWithInt(url, pattern, fields)) != 0;
}

int scanUrlInts(const std::string& url, const char* pattern, int32_t* values, int count) {
    for (int i = 0; i < count; ++i) values[i] = 0;
    size_t pos = 0;
    int read = 0;
    for (const char* p = pattern; *p != '\0' && read < count;) {
        if (p[0] == '%' && p[1] == 'd') {
            while (pos < url.size() && std::isspace(static_cast<unsigned char>(url[pos]))) ++pos;
            const size_t start = pos;
            if (pos < url.size() && (url[pos] == '-' || url[pos] == '+')) ++pos;
            const size_t digits = pos;
            while (pos < url.size() && std::isdigit(static_cast<unsigned char>(url[pos]))) ++pos;
            if (pos == digits) return read;
            values[read++] = KVL_Atoi32(url.substr(start, pos - start).c_str());
            p += 2;
            continue;
        }
        if (pos >= url.size() || url[pos] != *p) return read;
        ++pos;
        ++p;
    }
    return read;
}

bool makeRouteUrl(std::string* jsonUrl, const char* path, const char* gatewayPath,
                  const std::string& url, const std::string& devIndex) {
    int32_t numbers[2] = {0, 0};
    scanUrlInts(url, path, numbers, 2);
    const int64_t fields[2] = {numbers[0], numbers[1]};
    return makeGatewayUrl(jsonUrl, expandIntFields(gatewayPath, fields, 2), devIndex);
}

int relayWithoutBody(std::string* jsonUrl, std::string* jsonBody, const char* path,
                     const char* gatewayPath, bool accepted, const std::string& url,
                     const std::string& devIndex) {
    if (!accepted) return kResultNotMine;
    if (!makeRouteUrl(jsonUrl, path, gatewayPath, url, devIndex)) return kResultConvertFailed;
    jsonBody->clear();
    return kResultOk;
}

}  // namespace QXKORVAProtocol
