// CProtocolBase: the base of every request handler and the one pipeline every request runs
// through (URL match, activation check, digest authentication, device binding, then the
// handler's own procProtocol). Handlers differ only in matchURL and procProtocol.
// Thread safety: instances are per request; the static helpers may be called from any thread.
#pragma once

#include <string>

#include "host/exchange_holder.h"
#include "host/restful_protocol.h"

namespace QXKORVAProtocol {

class CProtocolBase : public QXBase::CRESTfulProtocol {
  public:
    // The pipeline. Returns the HTTP status, or -1 when matchURL declines (then nothing is
    // written). Not overridden by any handler.
    virtual int proc(int* handled, std::string* response, int* asyncReply,
                     const ExchangeHolder& exchange);
    // -1: not this handler's request; 0: this handler's.
    virtual int matchURL(const std::string& url, unsigned char method) = 0;
    // Runs after authentication with the device bound to the user. HTTP status, or -1 when it
    // failed without an answer.
    virtual int procProtocol(int* handled, std::string* response, int* asyncReply,
                             const ExchangeHolder& exchange, const std::string& devIndex) = 0;

    // The "ResponseStatus" document (version "2.0") of an error number for url.
    static std::string getResponseByError(int errorNumber, const std::string& url);
    // First entry of X-Forwarded-For (at most 48 characters), "" when absent.
    static std::string getClientAddress(const ExchangeHolder& exchange);
    // "Digest qop="auth", realm="<realm>", nonce="<fresh nonce>", stale="FALSE"".
    static std::string createDigestChallenge();
    // The 401 document, with lock information unless withoutLockInfo is nonzero.
    static std::string getUnauthorizedResponse(const char* url, int retryLoginTime, int unlockTime,
                                               int withoutLockInfo);
};

}  // namespace QXKORVAProtocol
