// The answer half of the device relay: the bus's completion routine turns the device's JSON
// answer into the KORVA answer and sends it on the exchange rebuilt from the request's handle.
#include <json/reader.h>

#include <cstring>
#include <exception>

#include "host/http_exchange.h"
#include "plugin/pipeline/error_catalogue.h"
#include "plugin/pipeline/plugin_log.h"
#include "plugin/relay/dev_cfg_base.h"
#include "plugin/relay/device_cfg_context.h"
#include "plugin/relay/handler_order.h"

namespace QXKORVAProtocol {
namespace {

constexpr int kCategoryDeviceError = 3;

struct Answer {
    int status = 200;
    std::string body;
    bool xml = false;  // Content-Type application/xml, else application/octet-stream
};

// The host's binary frames start with one of these; the plug-in does not accept them.
bool isBinaryFrame(const char* data, int length) {
    return length >= 4 && (std::memcmp(data, "QXMD", 4) == 0 || std::memcmp(data, "QXBD", 4) == 0);
}

void answerError(Answer& answer, uint32_t errorNumber, const std::string& url) {
    answer.body = CProtocolBase::getResponseByError(static_cast<int>(errorNumber), url);
    answer.status = getHttpStatusByErrorNo(errorNumber);
}

void answerInternalError(Answer& answer, const std::string& url) {
    answer.body = CProtocolBase::getResponseByError(static_cast<int>(kErrorInternal), url);
    answer.status = getHttpStatusByCategory(kCategoryDeviceError);
}

// A device status object: an object holding both "statusCode" and "statusString".
bool isStatusObject(const Json::Value& root) {
    return root.isObject() && root.isMember("statusCode") && root.isMember("statusString");
}

// Offers the payload to the handlers; a handler that throws counts as a failed conversion.
int convertPayload(std::string* body, const Json::Value& root, const std::string& url, int method) {
    try {
        return CDevCfgBase::covertRspChain(body, root, url, method);
    } catch (const std::exception& error) {
        QXW_LOG(5, "[url=%s]answer conversion failed: %s", url.c_str(), error.what());
        return kResultConvertFailed;
    }
}

// Json::Reader reports most malformed input as false but throws on some (nesting too deep).
// One reader per thread: parse resets its state, and building one costs two allocations.
bool parseJson(const char* data, int length, Json::Value& root) {
    try {
        thread_local Json::Reader reader;
        return reader.parse(data, data + length, root, false);
    } catch (const std::exception&) {
        return false;
    }
}

// The device's JSON answer: a status object decides alone unless its error maps to HTTP 200;
// everything else is converted by the handler chain.
void answerFromJson(Answer& answer, const char* data, int length, const std::string& url,
                    int method) {
    Json::Value root;
    if (!parseJson(data, length, root)) {
        QXW_LOG(5, "json formart error.");
        answerInternalError(answer, url);
        return;
    }
    if (isStatusObject(root)) {
        const Json::Value& errorCode = root["errorCode"];
        if (!errorCode.isInt()) {
            answerInternalError(answer, url);
            return;
        }
        answerError(answer, static_cast<uint32_t>(errorCode.asInt()), url);
        if (answer.status != 200) return;
    }
    std::string converted;
    int result = convertPayload(&converted, root, url, method);
    if (result == kResultOk) {
        answer.body = std::move(converted);
        answer.status = 200;
        return;
    }
    if (result == kResultNotMine) result = kResultConvertFailed;
    answerError(answer, getErrorNoByResult(result), url);
}

}  // namespace

int CDevCfgBase::covertRspChain(std::string* xmlOut, const Json::Value& root,
                                const std::string& url, int method) {
    size_t count = 0;
    const DevCfgHandlerFactory* factories = devCfgHandlerOrder(&count);
    for (size_t i = 0; i < count; ++i) {
        const std::unique_ptr<CDevCfgBase> handler = factories[i]();
        if (!handler) continue;
        const int result = handler->covertRsp(xmlOut, root, url, method);
        if (result != kResultNotMine) return result;
    }
    return kResultNotMine;
}

int CDevCfgBase::deviceCfgCallBack(const char* data, int length, void* userData) {
    auto* context = static_cast<DeviceCfgContext*>(userData);
    if (context == nullptr || context->handler == nullptr) {
        // Not a context this plug-in started: it is left to its owner.
        QXW_LOG(5, "callback data error 1");
        return -1;
    }
    if (data == nullptr || length < 0) {
        QXW_LOG(5, "callback data error 2");
    } else if (context->httpHandle < 0) {
        QXW_LOG(5, "callback data error 4");
    } else {
        QXHttpService::CHttpExchange http(context->httpHandle);
        const std::string url = http.getUrl();
        const int method = http.getMethod();
        Answer answer;
        if (isBinaryFrame(data, length)) {
            QXW_LOG(5, "receive invalid data.");
            answerInternalError(answer, url);
        } else {
            answer.xml = true;
            answerFromJson(answer, data, length, url, method);
        }
        http.setHead("Content-Type", answer.xml ? "application/xml" : "application/octet-stream");
        http.setStatus(answer.status);
        http.response(answer.body.data(), static_cast<int>(answer.body.size()));
        QXW_LOG(3, "[rsp = %s]rsponse data", answer.body.c_str());
    }
    releaseDeviceCfgContext(context);
    return 0;
}

}  // namespace QXKORVAProtocol
