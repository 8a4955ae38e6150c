// The digest challenge the plug-in builds when the host supplies none, and the 401 document.
#include <cstdio>
#include <string>

#include "host/config_mgr.h"
#include "host/host_util.h"
#include "host/xml_base.h"
#include "plugin/pipeline/error_catalogue.h"
#include "plugin/pipeline/protocol_base.h"
#include "plugin/pipeline/xml_text.h"

namespace QXKORVAProtocol {
namespace {

constexpr int kNonceBufferSize = 64;
constexpr size_t kChallengeBufferSize = 256;

}  // namespace

std::string CProtocolBase::createDigestChallenge() {
    char nonce[kNonceBufferSize] = {};
    CreateNonce(nonce, kNonceBufferSize);
    nonce[kNonceBufferSize - 1] = '\0';

    const auto userCfg = QX_ConfigMgr_GetUserCfg();
    const std::string realm = userCfg ? userCfg->getRealm() : std::string();

    char challenge[kChallengeBufferSize] = {};
    std::snprintf(challenge, sizeof(challenge),
                  "Digest qop=\"auth\", realm=\"%s\", nonce=\"%s\", stale=\"FALSE\"", realm.c_str(),
                  nonce);
    return challenge;
}

std::string CProtocolBase::getUnauthorizedResponse(const char* url, int retryLoginTime,
                                                   int unlockTime, int withoutLockInfo) {
    QXBase::CXmlBase doc;
    doc.CreateDeclaration("1.0", "UTF-8");
    doc.CreateRoot("ResponseStatus");
    addTextElement(doc, "requestURL", url != nullptr ? url : "");
    addTextElement(doc, "statusCode", "401");
    addTextElement(doc, "statusString", "Unauthorized");
    addTextElement(doc, "subStatusCode", "badAuthorization");
    if (withoutLockInfo == 0) {
        if (retryLoginTime == 0 && unlockTime > 0) {
            addTextElement(doc, "lockStatus", "locked");
            addTextElement(doc, "unlockTime", std::to_string(unlockTime));
        } else {
            addTextElement(doc, "lockStatus", "unlocked");
        }
        addTextElement(doc, "retryLoginTime", std::to_string(retryLoginTime));
    }
    return xmlToString(doc);
}

}  // namespace QXKORVAProtocol
