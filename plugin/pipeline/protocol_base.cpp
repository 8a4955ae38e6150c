// The request pipeline every handler's request runs through.
#include "plugin/pipeline/protocol_base.h"

#include <cstring>

#include "host/config_mgr.h"
#include "host/device_mgr.h"
#include "host/digest_check.h"
#include "host/http_exchange.h"
#include "plugin/pipeline/error_catalogue.h"
#include "plugin/pipeline/plugin_log.h"

namespace QXKORVAProtocol {
namespace {

constexpr size_t kClientAddressMax = 48;
constexpr int kCategoryDeviceError = 3;
constexpr int kCategoryInvalidOperation = 4;
constexpr int kStatusUnauthorized = 401;

// Copies at most sizeof(field) - 1 characters and terminates; the field is zero-filled.
template <size_t N>
void copyField(char (&field)[N], const std::string& text) {
    const size_t length = text.size() < N - 1 ? text.size() : N - 1;
    std::memcpy(field, text.data(), length);
    field[length] = '\0';
}

// A NUL-terminated text field of a host record, read without running past its end.
template <size_t N>
std::string readField(const char (&field)[N]) {
    return std::string(field, strnlen(field, N));
}

bool gatewayActivated() {
    const auto userCfg = QX_ConfigMgr_GetUserCfg();
    return userCfg && userCfg->isActivated() != 0;
}

}  // namespace

std::string CProtocolBase::getClientAddress(const ExchangeHolder& exchange) {
    if (!exchange.exchange) return {};
    std::string forwarded = exchange.exchange->getHead("X-Forwarded-For");
    const size_t comma = forwarded.find(',');
    if (comma != std::string::npos) forwarded.resize(comma);
    if (forwarded.size() > kClientAddressMax) forwarded.resize(kClientAddressMax);
    return forwarded;
}

int CProtocolBase::proc(int* handled, std::string* response, int* asyncReply,
                        const ExchangeHolder& exchange) {
    if (!exchange.exchange) return -1;
    QXHttpService::CHttpExchange& http = *exchange.exchange;
    const unsigned char method = http.getMethod();
    const std::string url = http.getUrl();
    if (matchURL(url, method) == -1) return -1;

    if (!gatewayActivated()) {
        *response = getResponseByError(kErrorNotActivated, url);
        return getHttpStatusByCategory(kCategoryInvalidOperation);
    }

    DigestCheckRequest request{};
    copyField(request.clientAddress, getClientAddress(exchange));
    copyField(request.authorization, http.getHead("Authorization"));
    DigestCheckResult result{};
    const int check = QX_KORVAMgrBus_CheckDigest(&result, GetMethod(method), &request);

    switch (check) {
        case kDigestAuthenticated:
            break;
        case kDigestChallengeDue:
            if (result.challenge[0] == '\0') copyField(result.challenge, createDigestChallenge());
            http.setHead("WWW-Authenticate", readField(result.challenge));
            *response =
                getUnauthorizedResponse(url.c_str(), result.retryLoginTime, result.unlockTime, 1);
            return kStatusUnauthorized;
        case kDigestRejected:
            // The host's challenge goes out as it is, even when empty.
            http.setHead("WWW-Authenticate", readField(result.challenge));
            *response =
                getUnauthorizedResponse(url.c_str(), result.retryLoginTime, result.unlockTime, 0);
            return kStatusUnauthorized;
        default: {
            const uint32_t errorNumber = getErrorNoByResult(check);
            *response = getResponseByError(static_cast<int>(errorNumber), url);
            return getHttpStatusByErrorNo(errorNumber);
        }
    }

    const std::string devIndex = readField(result.devIndex);
    if (!QX_DeviceMgr_GetDevice(devIndex)) {
        QXW_LOG(5, "[szDevIndx=%s]User Bound Device is not exist.", devIndex.c_str());
        *response = getResponseByError(kErrorInternal, url);
        return getHttpStatusByCategory(kCategoryDeviceError);
    }

    const int status = procProtocol(handled, response, asyncReply, exchange, devIndex);
    if (status == -1) {
        *response = getResponseByError(kErrorInternal, url);
        return getHttpStatusByCategory(kCategoryDeviceError);
    }
    return status;
}

}  // namespace QXKORVAProtocol
