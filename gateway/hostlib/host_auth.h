// Accounts and settings of the host's digest check (QX_KORVAMgrBus_CheckDigest).
// Gateway side of the host library (not visible to a plug-in). Thread-safe unless noted.
#pragma once

#include <string>
#include <vector>

#include "gateway/hostlib/client_address.h"

namespace korva::host {

enum class DigestAlgorithm { kMd5, kSha256 };

struct AuthSettings {
    DigestAlgorithm algorithm = DigestAlgorithm::kMd5;  // the only algorithm answers may use
    int maxAttempts = 5;    // wrong passwords before a (user, client address) is locked
    int lockSeconds = 180;  // how long a lock lasts
    int nonceLifetimeSeconds = 300;
    // Peers whose X-Forwarded-For (the check record's client address) names the client; from
    // any other peer the header is ignored and the peer itself is the client.
    std::vector<AddressRange> trustedProxies;
};

struct Account {
    std::string name;
    std::string password;
    std::string devIndex;  // device bound to the account
};

// Replaces the accounts and settings (lock-out state and nonce counts are reset).
void setAccounts(const std::vector<Account>& accounts, const AuthSettings& settings);

// Result of QX_KORVAMgrBus_CheckDigest when the digest uri does not designate the request target
// (compared as origin form: path and query, byte for byte). The plug-in turns it into 400
// "badParameters"; no attempt is counted, since no password was tried.
constexpr int kDigestUriMismatch = 4;
// Result when a check runs outside a request scope (request_context.h) and such checks are not
// allowed: a host failure, 500 "internalError". The gateway calls the plug-in inside a scope.
constexpr int kDigestNoRequest = 9;
// Allows checks outside a request scope (default: refused). For the in-process test harness,
// which calls the plug-in without sockets: such a check has no peer (every attempt counts
// against the unknown address "") and no target to compare the digest uri with.
void allowDigestChecksWithoutRequest(bool allow);

}  // namespace korva::host
