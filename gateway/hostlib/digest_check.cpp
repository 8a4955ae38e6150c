// The host's digest check (RFC 7616, qop "auth", MD5 or SHA-256 as configured): the digest uri
// must designate the request target, nonces must be this host's and fresh, nonce counts must
// rise, and failed attempts lock a (user, client address) pair. Every table it keeps is bounded.
//
// Locking: the configuration and its tables are one immutable snapshot held by shared pointer;
// the tables lock themselves only for their updates. Hashing, nonce minting and logging run
// under no lock.
#include "host/digest_check.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "gateway/hostlib/client_address.h"
#include "gateway/hostlib/digest_header.h"
#include "gateway/hostlib/digest_math.h"
#include "gateway/hostlib/host_auth.h"
#include "gateway/hostlib/host_context.h"
#include "gateway/hostlib/host_nonce.h"
#include "gateway/hostlib/login_lock_table.h"
#include "gateway/hostlib/nonce_counts.h"
#include "gateway/hostlib/request_context.h"
#include "gateway/hostlib/runtime_clock.h"
#include "host/config_mgr.h"
#include "host/qx_log.h"

namespace {

using korva::host::Account;
using korva::host::AuthSettings;
using korva::host::DigestAlgorithm;
using korva::host::LoginLockTable;
using korva::host::NonceCounts;
namespace digest = korva::host::digest;

struct AccountState {
    explicit AccountState(const Account& a) : account(a) {}
    const Account account;
    mutable NonceCounts nonces;
};

// One configuration of the check and its tables; setAccounts replaces it whole. Settings and
// accounts are never modified; the tables (mutable) lock themselves.
struct AuthState {
    AuthSettings settings;
    std::unordered_map<std::string, AccountState> accounts;
    mutable LoginLockTable locks;
};

}  // namespace

namespace korva::host::detail {

// The current configuration of the check, replaced whole by setAccounts.
class AuthStore {
  public:
    std::mutex mutex;  // guards `state` (the pointer, not what it points to)
    std::shared_ptr<const AuthState> state = std::make_shared<AuthState>();
    std::atomic<bool> allowWithoutRequest{false};
};

template struct PartDeleter<AuthStore>;
template Owned<AuthStore> makePart<AuthStore>();

}  // namespace korva::host::detail

namespace {

korva::host::detail::AuthStore& shared() {
    return korva::host::detail::context().auth();
}

std::shared_ptr<const AuthState> snapshot() {
    auto& s = shared();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.state;
}

digest::Algorithm configured(const AuthSettings& settings) {
    return settings.algorithm == DigestAlgorithm::kSha256 ? digest::Algorithm::kSha256
                                                          : digest::Algorithm::kMd5;
}

uint64_t lifetimeMs(const AuthSettings& settings) {
    return static_cast<uint64_t>(std::max(settings.nonceLifetimeSeconds, 0)) * 1000u;
}

uint64_t lockMs(const AuthSettings& settings) {
    return static_cast<uint64_t>(std::max(settings.lockSeconds, 0)) * 1000u;
}

std::string quoted(std::string_view text) {
    std::string out;
    for (char c : text) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out;
}

// Writes `Digest qop="auth", realm="..", nonce="..", algorithm=.., stale=".."` with a fresh nonce.
void writeChallenge(DigestCheckResult* out, const std::string& realm, digest::Algorithm algorithm,
                    bool stale) {
    const std::string nonce = korva::host::detail::createNonce();
    std::snprintf(out->challenge, sizeof out->challenge,
                  "Digest qop=\"auth\", realm=\"%s\", nonce=\"%s\", algorithm=%s, stale=\"%s\"",
                  quoted(realm).c_str(), nonce.c_str(), digest::algorithmName(algorithm),
                  stale ? "TRUE" : "FALSE");
}

// Result 1. Under MD5 a plain challenge is left to the caller (empty text); under SHA-256, and
// for stale nonces, the host writes its own.
int challengeDue(DigestCheckResult* out, const std::string& realm, const AuthSettings& settings,
                 bool stale) {
    if (stale || settings.algorithm == DigestAlgorithm::kSha256) {
        writeChallenge(out, realm, configured(settings), stale);
    }
    return kDigestChallengeDue;
}

// Result 1028 with the pair's counters and a fresh challenge.
int rejected(DigestCheckResult* out, const std::string& realm, const AuthSettings& settings,
             const LoginLockTable::Status& lock, uint64_t now) {
    if (lock.lockedUntil != 0) {
        const uint64_t ms = lock.lockedUntil > now ? lock.lockedUntil - now : 0;
        out->retryLoginTime = 0;
        out->unlockTime = static_cast<int32_t>(std::max<uint64_t>(1, (ms + 999) / 1000));
    } else {
        out->retryLoginTime = std::max(settings.maxAttempts - lock.failures, 0);
        out->unlockTime = 0;
    }
    writeChallenge(out, realm, configured(settings), false);
    return kDigestRejected;
}

bool isSchemeChar(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '+' ||
           c == '-' || c == '.';
}

// The origin-form part of a request target or digest uri, as sent: "/path?query" stays as it
// is; an absolute form "scheme://authority/path?query" gives "/path?query" ("/" for an empty
// path); anything else ("*", authority form) is compared whole.
std::string originForm(std::string_view uri) {
    const size_t schemeEnd = uri.find("://");
    if (uri.empty() || uri.front() == '/' || schemeEnd == std::string_view::npos ||
        schemeEnd == 0 || !std::all_of(uri.begin(), uri.begin() + schemeEnd, isSchemeChar)) {
        return std::string(uri);
    }
    const size_t pathStart = uri.find_first_of("/?", schemeEnd + 3);
    if (pathStart == std::string_view::npos) return "/";
    std::string origin = uri[pathStart] == '?' ? "/" : "";
    origin.append(uri.substr(pathStart));
    return origin;
}

// RFC 7616 3.4: the digest uri designates the request target (fails closed on an empty target).
bool sameResource(const std::string& target, const std::string& digestUri) {
    return !target.empty() && originForm(target) == originForm(digestUri);
}

// The record's X-Forwarded-For entry ("" when absent or not terminated).
std::string_view forwardedFor(const DigestCheckRequest* in) {
    if (in == nullptr) return {};
    const size_t length = strnlen(in->clientAddress, sizeof in->clientAddress);
    if (length == sizeof in->clientAddress) return {};
    return std::string_view(in->clientAddress, length);
}

// The record's Authorization header ("" without a record; nullopt when not terminated).
std::optional<std::string_view> authorizationOf(const DigestCheckRequest* in) {
    if (in == nullptr) return std::string_view();
    const size_t length = strnlen(in->authorization, sizeof in->authorization);
    if (length == sizeof in->authorization) return std::nullopt;
    return std::string_view(in->authorization, length);
}

// Why parsed credentials are not tried against a password: nullopt when they are to be tried,
// otherwise the result to return (with a challenge written when one is due). *issued receives
// the nonce's issue time.
std::optional<int> refusal(DigestCheckResult* out, const digest::DigestCredentials& credentials,
                           const std::string& realm, const AuthSettings& settings,
                           const korva::host::RequestContext* request, uint64_t* issued) {
    const char* user = credentials.username.c_str();
    if (credentials.realm != realm) return challengeDue(out, realm, settings, false);
    if (credentials.algorithm != configured(settings)) {
        QX_Log_Print(2, "AUTH", "%s answer refused, %s is required (user %.64s)",
                     digest::algorithmName(credentials.algorithm),
                     digest::algorithmName(configured(settings)), user);
        return challengeDue(out, realm, settings, false);
    }
    if (request != nullptr && !sameResource(request->target, credentials.uri)) {
        QX_Log_Print(2, "AUTH", "digest uri does not designate %s %s (user %.64s)",
                     request->method.c_str(), request->target.c_str(), user);
        return korva::host::kDigestUriMismatch;
    }
    if (!korva::host::detail::verifyNonce(credentials.nonce, issued)) {
        QX_Log_Print(2, "AUTH", "nonce not issued by this host (user %.64s)", user);
        return challengeDue(out, realm, settings, false);
    }
    const uint64_t now = korva::host::detail::monotonicMs();
    if (now > *issued && now - *issued > lifetimeMs(settings)) {
        return challengeDue(out, realm, settings, true);
    }
    return std::nullopt;
}

// A wrong answer (or an unknown name): counted against the pair; result 1028.
int failedAttempt(DigestCheckResult* out, const AuthState& state, const std::string& realm,
                  const std::string& user, const std::string& address) {
    const AuthSettings& settings = state.settings;
    const uint64_t now = korva::host::detail::monotonicMs();
    bool lockedNow = false;
    const LoginLockTable::Status lock = state.locks.recordFailure(
        user, address, now, settings.maxAttempts, lockMs(settings), &lockedNow);
    if (lockedNow) {
        QX_Log_Print(4, "AUTH", "user %.64s locked for %d s at address %s after %d failed logins",
                     user.c_str(), settings.lockSeconds, address.c_str(), settings.maxAttempts);
    }
    return rejected(out, realm, settings, lock, now);
}

// A right answer: its nonce count must rise (checked before the pair's failures are forgotten,
// so that a replayed request cannot reset them); result 0 with the account's device.
int rightAnswer(DigestCheckResult* out, const AuthState& state, const std::string& realm,
                const AccountState& account, const digest::DigestCredentials& credentials,
                uint64_t issued, const std::string& address) {
    const AuthSettings& settings = state.settings;
    const uint64_t now = korva::host::detail::monotonicMs();
    switch (account.nonces.use(credentials.nonce, issued, credentials.ncValue, now,
                               lifetimeMs(settings))) {
        case NonceCounts::Use::kReplayed:
            QX_Log_Print(4, "AUTH", "replayed nonce count %s (user %.64s)", credentials.nc.c_str(),
                         credentials.username.c_str());
            return challengeDue(out, realm, settings, false);
        case NonceCounts::Use::kUnknownCount:
            return challengeDue(out, realm, settings, true);
        case NonceCounts::Use::kAccepted:
            break;
    }
    const LoginLockTable::Status lock =
        state.locks.recordSuccess(credentials.username, address, now);
    if (lock.lockedUntil != 0) {
        return rejected(out, realm, settings, lock, now);  // locked while this one was hashed
    }
    const std::string& devIndex = account.account.devIndex;
    if (devIndex.size() >= sizeof out->devIndex) {
        QX_Log_Print(5, "AUTH", "device index of user %.64s is too long (%zu bytes)",
                     credentials.username.c_str(), devIndex.size());
        return 2;
    }
    std::memcpy(out->devIndex, devIndex.c_str(), devIndex.size() + 1);
    return kDigestAuthenticated;
}

// The method the client hashed: a HEAD request is handed to the plug-in as GET (it is a GET
// without body), but its client computed the digest over "HEAD".
std::string digestMethod(const std::string& methodName,
                         const korva::host::RequestContext* request) {
    if (request != nullptr && request->method == "HEAD" && methodName == "GET") return "HEAD";
    return methodName;
}

}  // namespace

int QX_KORVAMgrBus_CheckDigest(DigestCheckResult* out, const std::string& methodName,
                               DigestCheckRequest* in) {
    if (out == nullptr) return kDigestChallengeDue;
    const std::shared_ptr<const AuthState> state = snapshot();
    const AuthSettings& settings = state->settings;
    const korva::host::RequestContext* request = korva::host::currentRequest();
    if (request == nullptr && !shared().allowWithoutRequest.load(std::memory_order_relaxed)) {
        QX_Log_Print(5, "AUTH", "digest check outside a request refused");
        return korva::host::kDigestNoRequest;
    }
    const std::string realm = QX_ConfigMgr_GetUserCfg()->getRealm();
    const auto header = authorizationOf(in);
    if (!header) return challengeDue(out, realm, settings, false);
    const auto parsed = digest::parseCredentials(*header);
    if (!parsed) {
        if (!header->empty()) QX_Log_Print(2, "AUTH", "unusable Authorization header");
        return challengeDue(out, realm, settings, false);
    }
    const digest::DigestCredentials& credentials = *parsed;
    uint64_t issued = 0;
    if (const auto result = refusal(out, credentials, realm, settings, request, &issued)) {
        return *result;
    }
    const std::string& user = credentials.username;

    // A locked pair is refused before any hashing.
    const std::string address =
        korva::host::loginAddress(request != nullptr ? request->peerAddress : std::string(),
                                  forwardedFor(in), settings.trustedProxies);
    const uint64_t now = korva::host::detail::monotonicMs();
    const LoginLockTable::Status lock = state->locks.status(user, address, now);
    if (lock.lockedUntil != 0) return rejected(out, realm, settings, lock, now);

    // An unknown name costs the same work and is counted in the same table.
    const auto account = state->accounts.find(user);
    const bool known = account != state->accounts.end();
    const std::string& password = known ? account->second.account.password : std::string();
    const digest::Algorithm algorithm = credentials.algorithm;
    const std::string expected = digest::response(
        algorithm, digest::ha1(algorithm, user, realm, password), credentials.nonce, credentials.nc,
        credentials.cnonce, credentials.qop,
        digest::ha2(algorithm, digestMethod(methodName, request), credentials.uri));
    if (!digest::constantTimeEquals(expected, credentials.response) || !known) {
        return failedAttempt(out, *state, realm, user, address);
    }
    return rightAnswer(out, *state, realm, account->second, credentials, issued, address);
}

namespace korva::host {

void setAccounts(const std::vector<Account>& accounts, const AuthSettings& settings) {
    auto next = std::make_shared<AuthState>();
    next->settings = settings;
    for (const Account& account : accounts) {
        next->accounts.erase(account.name);  // a repeated name: the last one holds
        next->accounts.try_emplace(account.name, account);
    }
    auto& s = shared();
    std::shared_ptr<const AuthState> previous;
    {
        std::lock_guard<std::mutex> lock(s.mutex);
        previous = std::move(s.state);
        s.state = std::move(next);
    }
    // `previous` is released here, outside the lock (checks under way may still hold it).
}

void allowDigestChecksWithoutRequest(bool allow) {
    shared().allowWithoutRequest.store(allow, std::memory_order_relaxed);
}

}  // namespace korva::host
