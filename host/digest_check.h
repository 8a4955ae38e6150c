// The host's HTTP digest authentication check.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// Input record, 5140 bytes, zero-filled by the caller.
struct DigestCheckRequest {
    // First entry of the request's X-Forwarded-For header, NUL-terminated (at most 17 chars).
    char clientAddress[18];
    // The request's Authorization header value, NUL-terminated (at most 5121 chars).
    char authorization[5122];
};

// Output record, 5168 bytes, zero-filled by the caller and filled by the host.
struct DigestCheckResult {
    int32_t retryLoginTime;  // remaining login attempts of the user
    int32_t unlockTime;      // seconds until a locked user unlocks (0 when not locked)
    char challenge[5121];    // WWW-Authenticate text chosen by the host, may be empty
    char devIndex[39];       // device bound to the authenticated user, NUL-terminated
};

static_assert(sizeof(DigestCheckRequest) == 5140);
static_assert(offsetof(DigestCheckRequest, clientAddress) == 0);
static_assert(offsetof(DigestCheckRequest, authorization) == 18);
static_assert(sizeof(DigestCheckResult) == 5168);
static_assert(offsetof(DigestCheckResult, retryLoginTime) == 0);
static_assert(offsetof(DigestCheckResult, unlockTime) == 4);
static_assert(offsetof(DigestCheckResult, challenge) == 8);
static_assert(offsetof(DigestCheckResult, devIndex) == 5129);

// Result codes of QX_KORVAMgrBus_CheckDigest.
enum : int {
    kDigestAuthenticated = 0,  // out->devIndex names the user's device
    kDigestChallengeDue = 1,   // no, malformed, stale or replayed credentials
    kDigestRejected = 1028,    // wrong credentials or locked user; counters filled
};

// Verifies the Authorization header of a request made with methodName ("GET", ...).
// Thread-safe.
int QX_KORVAMgrBus_CheckDigest(DigestCheckResult* out, const std::string& methodName,
                               DigestCheckRequest* in);
