// The host's digest check (RFC 7616, qop "auth", MD5 and SHA-256) with nonce lifetime, nonce-count
// replay refusal and per-user lock-out. Every table it keeps is bounded.
#include "host/digest_check.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <list>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "gateway/hostlib/digest_header.h"
#include "gateway/hostlib/digest_math.h"
#include "gateway/hostlib/host_control.h"
#include "gateway/hostlib/host_nonce.h"
#include "gateway/hostlib/runtime_clock.h"
#include "host/config_mgr.h"
#include "host/qx_log.h"

namespace {

using korva::host::Account;
using korva::host::AuthSettings;
using korva::host::DigestAlgorithm;
namespace digest = korva::host::digest;

// Highest nonce counts kept (one per nonce in use within its lifetime).
constexpr size_t kMaxNonceEntries = 8192;
// Lock-out records of user names without an account (so that unknown and known names answer
// alike); the least recently used is forgotten first.
constexpr size_t kMaxStrangers = 1024;

struct LockState {
    int failures = 0;
    uint64_t lockedUntil = 0;  // 0: not locked
};

struct AccountEntry {
    Account account;
    LockState lock;
};

struct NonceEntry {
    uint32_t highestNc = 0;
    uint64_t issued = 0;
};

struct AuthState {
    std::mutex mutex;
    AuthSettings settings;
    uint64_t generation = 0;  // bumped by setAccounts
    std::unordered_map<std::string, AccountEntry> accounts;

    std::list<std::string> strangerOrder;  // most recently used first
    std::unordered_map<std::string, std::pair<LockState, std::list<std::string>::iterator>>
        strangers;

    std::unordered_map<std::string, NonceEntry> nonces;
    std::set<std::pair<uint64_t, std::string>> nonceAges;  // (issued, nonce)
    // Nonces issued up to this time may have lost their count to eviction: without an entry
    // they are answered stale rather than trusted (only when the table overflowed).
    bool evicted = false;
    uint64_t evictedUpTo = 0;
};

AuthState& auth() {
    static AuthState* s = new AuthState;  // never destroyed: checks may run until exit
    return *s;
}

digest::Algorithm configured(const AuthSettings& settings) {
    return settings.algorithm == DigestAlgorithm::kSha256 ? digest::Algorithm::kSha256
                                                          : digest::Algorithm::kMd5;
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
void writeChallenge(DigestCheckResult* out, const std::string& realm,
                    digest::Algorithm algorithm, bool stale) {
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

uint64_t lifetimeMs(const AuthSettings& settings) {
    return static_cast<uint64_t>(std::max(settings.nonceLifetimeSeconds, 0)) * 1000u;
}

// The lock-out record of a name (created on first use; mutex held).
LockState& lockFor(AuthState& s, const std::string& name) {
    auto account = s.accounts.find(name);
    if (account != s.accounts.end()) return account->second.lock;
    auto stranger = s.strangers.find(name);
    if (stranger != s.strangers.end()) {
        s.strangerOrder.splice(s.strangerOrder.begin(), s.strangerOrder, stranger->second.second);
        return stranger->second.first;
    }
    if (s.strangers.size() >= kMaxStrangers) {
        s.strangers.erase(s.strangerOrder.back());
        s.strangerOrder.pop_back();
    }
    s.strangerOrder.push_front(name);
    auto inserted = s.strangers.emplace(name, std::make_pair(LockState{}, s.strangerOrder.begin()));
    return inserted.first->second.first;
}

// Ends a lock whose time is over (mutex held).
void expireLock(LockState& lock, uint64_t now) {
    if (lock.lockedUntil != 0 && now >= lock.lockedUntil) lock = LockState{};
}

int32_t secondsLeft(const LockState& lock, uint64_t now) {
    const uint64_t ms = lock.lockedUntil > now ? lock.lockedUntil - now : 0;
    return static_cast<int32_t>(std::max<uint64_t>(1, (ms + 999) / 1000));
}

// Drops counts of nonces that have expired (mutex held).
void purgeNonces(AuthState& s, uint64_t now) {
    const uint64_t lifetime = lifetimeMs(s.settings);
    while (!s.nonceAges.empty() && now - s.nonceAges.begin()->first > lifetime) {
        s.nonces.erase(s.nonceAges.begin()->second);
        s.nonceAges.erase(s.nonceAges.begin());
    }
}

enum class NonceUse { kAccepted, kReplayed, kUnknownCount };

// Records nc for a nonce unless it is not above the highest count seen (mutex held).
NonceUse useNonce(AuthState& s, const std::string& nonce, uint64_t issued, uint32_t nc,
                  uint64_t now) {
    purgeNonces(s, now);
    auto it = s.nonces.find(nonce);
    if (it != s.nonces.end()) {
        if (nc <= it->second.highestNc) return NonceUse::kReplayed;
        it->second.highestNc = nc;
        return NonceUse::kAccepted;
    }
    if (s.evicted && issued <= s.evictedUpTo) return NonceUse::kUnknownCount;
    if (s.nonces.size() >= kMaxNonceEntries) {
        auto oldest = s.nonceAges.begin();
        s.evicted = true;
        s.evictedUpTo = std::max(s.evictedUpTo, oldest->first);
        s.nonces.erase(oldest->second);
        s.nonceAges.erase(oldest);
        if (issued <= s.evictedUpTo) return NonceUse::kUnknownCount;
    }
    s.nonces.emplace(nonce, NonceEntry{nc, issued});
    s.nonceAges.emplace(issued, nonce);
    return NonceUse::kAccepted;
}

// Result 1028 with the counters of the lock record and a fresh challenge.
int rejected(DigestCheckResult* out, const std::string& realm, const AuthSettings& settings,
             const LockState& lock, uint64_t now) {
    if (lock.lockedUntil != 0) {
        out->retryLoginTime = 0;
        out->unlockTime = secondsLeft(lock, now);
    } else {
        out->retryLoginTime = std::max(settings.maxAttempts - lock.failures, 0);
        out->unlockTime = 0;
    }
    writeChallenge(out, realm, configured(settings), false);
    return kDigestRejected;
}

}  // namespace

int QX_KORVAMgrBus_CheckDigest(DigestCheckResult* out, const std::string& methodName,
                               DigestCheckRequest* in) {
    if (out == nullptr) return kDigestChallengeDue;
    AuthState& s = auth();
    AuthSettings settings;
    {
        std::lock_guard<std::mutex> lock(s.mutex);
        settings = s.settings;
    }
    const std::string realm = QX_ConfigMgr_GetUserCfg()->getRealm();

    std::string_view header;
    if (in != nullptr) {
        const size_t length = strnlen(in->authorization, sizeof in->authorization);
        if (length == sizeof in->authorization) return challengeDue(out, realm, settings, false);
        header = std::string_view(in->authorization, length);
    }
    const auto credentials = digest::parseCredentials(header);
    if (!credentials) {
        if (!header.empty()) QX_Log_Print(2, "AUTH", "unusable Authorization header");
        return challengeDue(out, realm, settings, false);
    }
    if (credentials->realm != realm) return challengeDue(out, realm, settings, false);
    uint64_t issued = 0;
    if (!korva::host::detail::verifyNonce(credentials->nonce, &issued)) {
        QX_Log_Print(2, "AUTH", "nonce not issued by this host (user %s)",
                     credentials->username.c_str());
        return challengeDue(out, realm, settings, false);
    }
    const uint64_t checkedAt = korva::host::detail::monotonicMs();
    if (checkedAt > issued && checkedAt - issued > lifetimeMs(settings)) {
        return challengeDue(out, realm, settings, true);
    }

    // Phase 1: refuse a locked user before any hashing; take the account's secret.
    uint64_t generation = 0;
    bool known = false;
    std::string password;
    std::string devIndex;
    {
        std::lock_guard<std::mutex> lock(s.mutex);
        generation = s.generation;
        const uint64_t now = korva::host::detail::monotonicMs();
        LockState& state = lockFor(s, credentials->username);
        expireLock(state, now);
        if (state.lockedUntil != 0) return rejected(out, realm, s.settings, state, now);
        auto account = s.accounts.find(credentials->username);
        if (account != s.accounts.end()) {
            known = true;
            password = account->second.account.password;
            devIndex = account->second.account.devIndex;
        }
    }

    // The hashes run outside the lock; an unknown name costs the same work.
    const std::string ha1 =
        digest::ha1(credentials->algorithm, credentials->username, realm, password);
    const std::string ha2 = digest::ha2(credentials->algorithm, methodName, credentials->uri);
    const std::string expected =
        digest::response(credentials->algorithm, ha1, credentials->nonce, credentials->nc,
                         credentials->cnonce, credentials->qop, ha2);
    const bool match = digest::constantTimeEquals(expected, credentials->response) && known;

    // Phase 2: count the attempt.
    std::lock_guard<std::mutex> lock(s.mutex);
    if (s.generation != generation) return challengeDue(out, realm, s.settings, false);
    const uint64_t now = korva::host::detail::monotonicMs();
    LockState& state = lockFor(s, credentials->username);
    expireLock(state, now);
    if (state.lockedUntil != 0) return rejected(out, realm, s.settings, state, now);
    if (!match) {
        ++state.failures;
        if (s.settings.maxAttempts > 0 && state.failures >= s.settings.maxAttempts) {
            state.failures = 0;
            state.lockedUntil =
                now + static_cast<uint64_t>(std::max(s.settings.lockSeconds, 0)) * 1000u;
            if (state.lockedUntil <= now) state = LockState{};  // a lock of 0 s ends at once
            QX_Log_Print(4, "AUTH", "user %s locked for %d s after %d failed logins",
                         credentials->username.c_str(), s.settings.lockSeconds,
                         s.settings.maxAttempts);
        }
        return rejected(out, realm, s.settings, state, now);
    }
    switch (useNonce(s, credentials->nonce, issued, credentials->ncValue, now)) {
    case NonceUse::kReplayed:
        QX_Log_Print(4, "AUTH", "replayed nonce count %s (user %s)", credentials->nc.c_str(),
                     credentials->username.c_str());
        return challengeDue(out, realm, s.settings, false);
    case NonceUse::kUnknownCount:
        return challengeDue(out, realm, s.settings, true);
    case NonceUse::kAccepted:
        break;
    }
    if (devIndex.size() >= sizeof out->devIndex) {
        QX_Log_Print(5, "AUTH", "device index of user %s is too long (%zu bytes)",
                     credentials->username.c_str(), devIndex.size());
        return 2;
    }
    state.failures = 0;
    std::memcpy(out->devIndex, devIndex.c_str(), devIndex.size() + 1);
    return kDigestAuthenticated;
}

namespace korva::host {

void setAccounts(const std::vector<Account>& accounts, const AuthSettings& settings) {
    std::unordered_map<std::string, AccountEntry> next;
    for (const Account& account : accounts) next[account.name] = AccountEntry{account, LockState{}};
    AuthState& s = auth();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.settings = settings;
    s.accounts = std::move(next);
    ++s.generation;
    s.strangers.clear();
    s.strangerOrder.clear();
    s.nonces.clear();
    s.nonceAges.clear();
    s.evicted = false;
    s.evictedUpTo = 0;
}

}  // namespace korva::host
