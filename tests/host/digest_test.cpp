// Digest arithmetic, header parsing and the host's digest check.
#include <gtest/gtest.h>

#include <cstring>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "gateway/hostlib/client_address.h"
#include "gateway/hostlib/digest_header.h"
#include "gateway/hostlib/digest_math.h"
#include "gateway/hostlib/host_auth.h"
#include "gateway/hostlib/host_clock.h"
#include "gateway/hostlib/host_config.h"
#include "gateway/hostlib/login_lock_table.h"
#include "gateway/hostlib/nonce_counts.h"
#include "gateway/hostlib/request_context.h"
#include "host/config_mgr.h"
#include "host/digest_check.h"
#include "host/host_util.h"

namespace digest = korva::host::digest;
using digest::Algorithm;

namespace {

std::string expectedResponse(Algorithm algorithm, const std::string& user, const std::string& realm,
                             const std::string& password, const std::string& method,
                             const std::string& uri, const std::string& nonce,
                             const std::string& nc, const std::string& cnonce) {
    return digest::response(algorithm, digest::ha1(algorithm, user, realm, password), nonce, nc,
                            cnonce, "auth", digest::ha2(algorithm, method, uri));
}

}  // namespace

TEST(DigestMath, PublishedExamples) {
    // RFC 7616 section 3.9.1 (both algorithms) and RFC 2617 section 3.5.
    const std::string nonce = "7ypf/xlj9XXwfDPEoM4URrv/xwf94BcCAzFZH4GiTo0v";
    const std::string cnonce = "f2/wE4q74E6zIJEtWaHKaf5wv/H5QzzpXusqGemxURZJ";
    const std::string realm = "http-auth@example.org";
    EXPECT_EQ(expectedResponse(Algorithm::kMd5, "Mufasa", realm, "Circle of Life", "GET",
                               "/dir/index.html", nonce, "00000001", cnonce),
              "8ca523f5e9506fed4657c9700eebdbec");
    EXPECT_EQ(expectedResponse(Algorithm::kSha256, "Mufasa", realm, "Circle of Life", "GET",
                               "/dir/index.html", nonce, "00000001", cnonce),
              "753927fa0e85d155564e2e272a28d1802ca10daf4496794697cf8db5856cb6c1");
    EXPECT_EQ(expectedResponse(Algorithm::kMd5, "Mufasa", "testrealm@host.com", "Circle Of Life",
                               "GET", "/dir/index.html", "dcd98b7102dd2f0e8b11d0f600bfb0c093",
                               "00000001", "0a4f113b"),
              "6629fae49393a05397450978507c4ef1");
    EXPECT_FALSE(digest::constantTimeEquals("abc", "abd"));
    EXPECT_FALSE(digest::constantTimeEquals("abc", "abcd"));
}

TEST(DigestHeader, AcceptsAnyOrderQuotingAndSpacing) {
    const std::string md5(32, 'a');
    const std::string header =
        "digest   nc=00000002 , qop=auth,,cnonce=\"x,y\\\"z\", username=\"Mu\\\"fasa\","
        "realm = \"r\" ,nonce=\"n\",uri=\"/a?b=1,2\",response=\"" +
        std::string(32, 'A') + "\",opaque=\"o\",algorithm=md5";
    auto c = digest::parseCredentials(header);
    ASSERT_TRUE(c.has_value());
    EXPECT_EQ(c->username, "Mu\"fasa");
    EXPECT_EQ(c->realm, "r");
    EXPECT_EQ(c->cnonce, "x,y\"z");
    EXPECT_EQ(c->uri, "/a?b=1,2");
    EXPECT_EQ(c->response, md5);  // lower-cased
    EXPECT_EQ(c->ncValue, 2u);
    EXPECT_EQ(c->algorithm, Algorithm::kMd5);
}

TEST(DigestHeader, RefusesMalformedOrUnsupportedCredentials) {
    const std::string good =
        "username=\"u\", realm=\"r\", nonce=\"n\", uri=\"/\", qop=auth, nc=00000001, "
        "cnonce=\"c\", response=\"" +
        std::string(32, '0') + "\"";
    ASSERT_TRUE(digest::parseCredentials("Digest " + good));
    auto with = [&](const char* from, const char* to) {
        return "Digest " + std::regex_replace(good, std::regex(from), to);
    };
    const std::string d = "Digest " + good;
    const std::string bad[] = {
        "",
        "Basic dXNlcjpwYXNz",
        "Digest",
        "Digest ",
        "Digestusername=\"u\"",
        d + ", username=\"v\"",  // repeated parameter
        d + ", x",
        d + ", x=\"open",
        d + " trailing",
        d + ", x=\"a\\",
        d + ", x=\"a\x01\"",
        d + ", algorithm=MD5-sess",
        d + ", algorithm=SHA-512-256",
        d + ", userhash=true",
        d + ", algorithm=SHA-256",  // a 32-digit response is not SHA-256
        with("qop=auth", "qop=auth-int"),
        with("nc=00000001", "nc=1"),
        with("nc=00000001", "nc=0000000g"),
        with("nc=00000001", "nc=00000000"),
        with("cnonce=\"c\", ", ""),
        with("response=\"0", "response=\""),
        with("username=\"u\"", "username*=UTF-8''u"),
    };
    for (const std::string& header : bad) {
        EXPECT_FALSE(digest::parseCredentials(header).has_value()) << header;
    }
    std::string many = "Digest " + good;
    for (int i = 0; i < 40; ++i) many += ", x" + std::to_string(i) + "=1";
    EXPECT_FALSE(digest::parseCredentials(many).has_value());
    EXPECT_FALSE(digest::parseCredentials("Digest " + good + ", x=\"" +
                                          std::string(digest::kMaxAuthorizationLength, 'a') + "\"")
                     .has_value());
}

TEST(ClientAddress, RangesAndTheAddressALoginCountsAgainst) {
    using korva::host::AddressRange;
    const std::vector<AddressRange> trusted = {*AddressRange::parse("127.0.0.1", nullptr),
                                               *AddressRange::parse("10.8.0.0/16", nullptr),
                                               *AddressRange::parse("fd00::/8", nullptr)};
    struct Row {
        const char* peer;
        const char* forwarded;
        const char* counted;
    };
    const Row rows[] = {
        {"192.0.2.7", "", "192.0.2.7"},
        {"192.0.2.7", "10.1.1.1", "192.0.2.7"},        // untrusted peer: header ignored
        {"127.0.0.1", "10.1.1.1", "10.1.1.1"},         // trusted proxy
        {"10.8.200.1", " 10.1.1.2 ", "10.1.1.2"},      // inside a trusted network
        {"10.9.0.1", "10.1.1.2", "10.9.0.1"},          // just outside it
        {"127.0.0.1", "unknown", "127.0.0.1"},         // not an address: the proxy itself
        {"::ffff:127.0.0.1", "10.1.1.3", "10.1.1.3"},  // IPv4-mapped peer
        {"fd12::1", "2001:db8:1:2:3:4:5:6", "2001:db8:1:2::/64"},
        {"2001:db8:1:2::99%eth0", "", "2001:db8:1:2::/64"},  // one /64 counts as one client
        {"", "10.1.1.1", ""},                                // unknown peer
    };
    for (const Row& row : rows) {
        EXPECT_EQ(korva::host::loginAddress(row.peer, row.forwarded, trusted), row.counted)
            << row.peer << " / " << row.forwarded;
    }
    for (const char* bad : {"", "10.0.0.256", "10.0.0.0/33", "10.0.0.0/", "10.0.0.0/8x",
                            "fd00::/129", "host.example"}) {
        std::string problem;
        EXPECT_FALSE(AddressRange::parse(bad, &problem)) << bad;
        EXPECT_FALSE(problem.empty());
    }
    EXPECT_FALSE(AddressRange::parse(std::string_view("10.0.0.1\0", 9), nullptr));
}

TEST(LoginLockTable, FullTableForgetsUnlockedPairsBeforeLockedOnes) {
    korva::host::LoginLockTable table(2);
    bool locked = false;
    table.recordFailure("a", "x", 10, 2, 1000, &locked);
    table.recordFailure("a", "x", 11, 2, 1000, &locked);  // locked until 1011
    ASSERT_TRUE(locked);
    table.recordFailure("b", "x", 12, 2, 1000, &locked);
    table.recordFailure("c", "x", 13, 2, 1000, &locked);  // b (unlocked) goes, not a
    EXPECT_EQ(table.size(), 2u);
    EXPECT_EQ(table.status("a", "x", 14).lockedUntil, 1011u);
    EXPECT_EQ(table.status("b", "x", 14).failures, 0);
    table.recordFailure("c", "x", 15, 2, 500, &locked);   // c locked until 515: all locked
    table.recordFailure("d", "x", 16, 2, 1000, &locked);  // the soonest unlock (c) goes
    EXPECT_EQ(table.status("c", "x", 17).lockedUntil, 0u);
    EXPECT_EQ(table.status("a", "x", 17).lockedUntil, 1011u);
    EXPECT_EQ(table.status("a", "x", 1011).lockedUntil, 0u);  // the lock has run out
    EXPECT_EQ(table.size(), 1u);
}

namespace {

constexpr const char* kRealm = "test realm";
constexpr const char* kTarget = "/KORVA/System/deviceInfo";
constexpr const char* kPeer = "192.0.2.10";

// What the client answers.
struct Answer {
    std::string nc = "00000001";
    Algorithm algorithm = Algorithm::kMd5;
    std::string method = "GET";
    std::string uri = kTarget;
    bool namesAlgorithm = true;  // false: no algorithm parameter (MD5)
};

// The request the check runs for (inside a request scope, as in the gateway).
struct Request {
    std::string method = "GET";
    std::string target = kTarget;
    std::string peer = kPeer;
    std::string forwarded;
};

class DigestCheck : public ::testing::Test {
  protected:
    void SetUp() override {
        korva::host::useManualClock(0);
        korva::host::setUserConfig(true, kRealm);
        configure(korva::host::DigestAlgorithm::kMd5);
    }
    void TearDown() override {
        korva::host::setAccounts({}, korva::host::AuthSettings{});
        korva::host::setUserConfig(true, "KORVA Gateway");
        korva::host::allowDigestChecksWithoutRequest(false);
        korva::host::useRealClock();
    }

    void configure(korva::host::DigestAlgorithm algorithm,
                   const std::vector<std::string>& trustedProxies = {}) {
        korva::host::AuthSettings settings;
        settings.algorithm = algorithm;
        settings.maxAttempts = 3;
        settings.lockSeconds = 60;
        settings.nonceLifetimeSeconds = 300;
        for (const std::string& proxy : trustedProxies) {
            settings.trustedProxies.push_back(*korva::host::AddressRange::parse(proxy, nullptr));
        }
        korva::host::setAccounts({{"admin", "Admin12345", "cam-1"}, {"viewer", "pw", "cam-2"}},
                                 settings);
    }

    static std::string freshNonce() {
        char buffer[64] = {};
        EXPECT_EQ(CreateNonce(buffer, sizeof buffer), 0);
        return buffer;
    }

    static std::string header(const std::string& user, const std::string& password,
                              const std::string& nonce, const Answer& a = {}) {
        const std::string cnonce = "0a4f113b";
        return "Digest username=\"" + user + "\", realm=\"" + kRealm + "\", nonce=\"" + nonce +
               "\", uri=\"" + a.uri + "\", qop=auth, nc=" + a.nc + ", cnonce=\"" + cnonce +
               (a.namesAlgorithm ? std::string("\", algorithm=") +
                                       digest::algorithmName(a.algorithm) + ", response=\""
                                 : std::string("\", response=\"")) +
               expectedResponse(a.algorithm, user, kRealm, password, a.method, a.uri, nonce, a.nc,
                                cnonce) +
               "\"";
    }

    static int checkInto(DigestCheckResult* result, const std::string& authorization,
                         const Request& r = {}) {
        const korva::host::RequestContext context{r.peer, r.target, r.method};
        const korva::host::RequestScope scope(context);
        return checkOutsideRequest(result, authorization, r.method, r.forwarded);
    }
    static int checkOutsideRequest(DigestCheckResult* result, const std::string& authorization,
                                   const std::string& method = "GET",
                                   const std::string& forwarded = "") {
        DigestCheckRequest in{};
        std::strncpy(in.clientAddress, forwarded.c_str(), sizeof in.clientAddress - 1);
        std::strncpy(in.authorization, authorization.c_str(), sizeof in.authorization - 1);
        *result = DigestCheckResult{};
        return QX_KORVAMgrBus_CheckDigest(result, method, &in);
    }
    // The administrator's right answer (under a fresh nonce unless one is given).
    static std::string admin(const Answer& a = {}, const std::string& nonce = freshNonce()) {
        return header("admin", "Admin12345", nonce, a);
    }
    int check(const std::string& authorization, const Request& r = {}) {
        return checkInto(&out, authorization, r);
    }
    // A wrong password for `user` from the request's address; the attempts left afterwards.
    int fail(const std::string& user, const Request& r = {}) {
        EXPECT_EQ(check(header(user, "wrong", freshNonce()), r), kDigestRejected);
        return out.retryLoginTime;
    }

    DigestCheckResult out{};
};

const std::regex kChallenge(
    "Digest qop=\"auth\", realm=\"test realm\", nonce=\"[A-Za-z0-9_-]{43}\", "
    "algorithm=(MD5|SHA-256), stale=\"(TRUE|FALSE)\"");

// The algorithm and stale flag of a well-formed challenge, or "" when it is malformed.
std::string challengeShape(const char* text) {
    std::cmatch m;
    return std::regex_match(text, m, kChallenge) ? m[1].str() + " " + m[2].str() : "";
}

}  // namespace

TEST_F(DigestCheck, NoCredentials) {
    EXPECT_EQ(check(""), kDigestChallengeDue);
    EXPECT_STREQ(out.challenge, "");  // under MD5 the caller writes its own challenge
    configure(korva::host::DigestAlgorithm::kSha256);
    EXPECT_EQ(check(""), kDigestChallengeDue);
    EXPECT_EQ(challengeShape(out.challenge), "SHA-256 FALSE") << out.challenge;
}

TEST_F(DigestCheck, AcceptsOnlyTheConfiguredAlgorithm) {
    using korva::host::DigestAlgorithm;
    struct Row {
        DigestAlgorithm configured;
        Algorithm answer;
        bool namesAlgorithm;
        int result;
        const char* challenge;  // shape of the host's challenge ("" none)
    };
    const Row rows[] = {
        {DigestAlgorithm::kMd5, Algorithm::kMd5, true, kDigestAuthenticated, ""},
        {DigestAlgorithm::kMd5, Algorithm::kMd5, false, kDigestAuthenticated, ""},
        {DigestAlgorithm::kMd5, Algorithm::kSha256, true, kDigestChallengeDue, ""},
        {DigestAlgorithm::kSha256, Algorithm::kSha256, true, kDigestAuthenticated, ""},
        {DigestAlgorithm::kSha256, Algorithm::kMd5, true, kDigestChallengeDue, "SHA-256 FALSE"},
        {DigestAlgorithm::kSha256, Algorithm::kMd5, false, kDigestChallengeDue, "SHA-256 FALSE"},
    };
    for (const Row& row : rows) {
        configure(row.configured);
        const Answer answer{.algorithm = row.answer, .namesAlgorithm = row.namesAlgorithm};
        EXPECT_EQ(check(header("viewer", "pw", freshNonce(), answer)), row.result)
            << static_cast<int>(row.configured) << " " << digest::algorithmName(row.answer);
        EXPECT_EQ(out.challenge[0] ? challengeShape(out.challenge) : "", row.challenge);
        EXPECT_STREQ(out.devIndex, row.result == kDigestAuthenticated ? "cam-2" : "");
        EXPECT_EQ(out.retryLoginTime, 0);  // a refused algorithm is not a failed attempt
    }
    // The method takes part in the response.
    configure(DigestAlgorithm::kMd5);
    EXPECT_EQ(check(admin({.method = "PUT"})), kDigestRejected);
}

TEST_F(DigestCheck, DigestUriMustDesignateTheRequestTarget) {
    struct Row {
        const char* target;
        const char* uri;
        int result;
    };
    const Row rows[] = {
        {"/KORVA/System/deviceInfo", "/KORVA/System/deviceInfo", kDigestAuthenticated},
        {"/KORVA/System/deviceInfo", "/KORVA/System/IO", korva::host::kDigestUriMismatch},
        {"/KORVA/System/IO?a=1", "/KORVA/System/IO?a=1", kDigestAuthenticated},
        {"/KORVA/System/IO?a=1", "/KORVA/System/IO", korva::host::kDigestUriMismatch},
        {"/KORVA/System/IO", "/KORVA/System/IO?a=1", korva::host::kDigestUriMismatch},
        {"/KORVA/System/IO?a=1", "/KORVA/System/IO?a=2", korva::host::kDigestUriMismatch},
        {"/KORVA/System/IO", "/korva/system/io", korva::host::kDigestUriMismatch},
        {"/KORVA/System/I%4F", "/KORVA/System/IO", korva::host::kDigestUriMismatch},
        {"http://gw.example:8080/KORVA/System/IO?a=1", "/KORVA/System/IO?a=1",
         kDigestAuthenticated},
        {"/KORVA/System/IO", "http://gw.example/KORVA/System/IO", kDigestAuthenticated},
        {"http://gw.example?a=1", "/?a=1", kDigestAuthenticated},
        {"http://gw.example/KORVA/System/deviceInfo", "/KORVA/System/IO",
         korva::host::kDigestUriMismatch},
        {"", "", korva::host::kDigestUriMismatch},  // no target: refused
    };
    for (const Row& row : rows) {
        EXPECT_EQ(check(admin({.uri = row.uri}), {.target = row.target, .forwarded = {}}),
                  row.result)
            << row.target << " / " << row.uri;
    }
    // Also with the wrong password: refused before any attempt is counted.
    EXPECT_EQ(check(header("admin", "wrong", freshNonce(), {.uri = "/KORVA/System/IO"})),
              korva::host::kDigestUriMismatch);
    EXPECT_EQ(fail("admin"), 2);
}

TEST_F(DigestCheck, OutsideARequestOnlyWhenAllowed) {
    const std::string authorization = admin({.uri = "/anything"});
    EXPECT_EQ(checkOutsideRequest(&out, authorization), korva::host::kDigestNoRequest);
    korva::host::allowDigestChecksWithoutRequest(true);  // as the test harness does
    EXPECT_EQ(checkOutsideRequest(&out, authorization), kDigestAuthenticated);
}

TEST_F(DigestCheck, RefusesReplayedNonceCounts) {
    const std::string nonce = freshNonce();
    auto withNc = [&](const char* nc) { return check(admin({.nc = nc}, nonce)); };
    EXPECT_EQ(withNc("00000001"), kDigestAuthenticated);
    EXPECT_EQ(withNc("00000001"), kDigestChallengeDue);
    EXPECT_EQ(withNc("00000003"), kDigestAuthenticated);
    EXPECT_EQ(withNc("00000002"), kDigestChallengeDue);
    EXPECT_EQ(withNc("0000000a"), kDigestAuthenticated);
}

TEST_F(DigestCheck, OneUsersNonceFloodDoesNotStaleAnothersNonce) {
    const std::string viewerNonce = freshNonce();
    EXPECT_EQ(check(header("viewer", "pw", viewerNonce)), kDigestAuthenticated);
    // More fresh nonces than any nonce-count table holds.
    std::string firstAdminNonce;
    for (int i = 0; i < 8300; ++i) {
        korva::host::advanceClock(1);
        const std::string nonce = freshNonce();
        if (i == 0) firstAdminNonce = nonce;
        ASSERT_EQ(check(header("admin", "Admin12345", nonce)), kDigestAuthenticated) << i;
    }
    EXPECT_EQ(check(header("viewer", "pw", viewerNonce, {.nc = "00000002"})), kDigestAuthenticated);
    // The flooding user's own oldest nonce lost its count: a fresh one is asked for.
    EXPECT_EQ(check(admin({.nc = "00000002"}, firstAdminNonce)), kDigestChallengeDue);
    EXPECT_EQ(challengeShape(out.challenge), "MD5 TRUE");
}

TEST_F(DigestCheck, ExpiredNoncesAreStaleForeignNoncesAndRealmsRefused) {
    const std::string nonce = freshNonce();
    korva::host::advanceClock(300 * 1000);
    EXPECT_EQ(check(header("admin", "Admin12345", nonce)), kDigestAuthenticated);
    korva::host::advanceClock(1);
    EXPECT_EQ(check(admin({.nc = "00000002"}, nonce)), kDigestChallengeDue);
    EXPECT_EQ(challengeShape(out.challenge), "MD5 TRUE") << out.challenge;

    std::string forged = freshNonce();
    forged[5] = forged[5] == 'A' ? 'B' : 'A';
    EXPECT_EQ(check(header("admin", "Admin12345", forged)), kDigestChallengeDue);
    EXPECT_EQ(check(header("admin", "Admin12345", "dcd98b7102dd2f0e8b11d0f600bfb0c093")),
              kDigestChallengeDue);
    korva::host::setUserConfig(true, "another realm");
    EXPECT_EQ(check(admin()), kDigestChallengeDue);
}

TEST_F(DigestCheck, LocksOutAUserAtOneAddressOnly) {
    EXPECT_EQ(fail("admin"), 2);
    EXPECT_EQ(out.unlockTime, 0);
    EXPECT_EQ(challengeShape(out.challenge), "MD5 FALSE");  // the client may retry
    EXPECT_EQ(fail("admin"), 1);
    EXPECT_EQ(fail("admin"), 0);
    EXPECT_EQ(out.unlockTime, 60);
    // The right password is refused at this address while locked ...
    korva::host::advanceClock(20 * 1000 + 1);
    EXPECT_EQ(check(admin()), kDigestRejected);
    EXPECT_EQ(out.retryLoginTime, 0);
    EXPECT_EQ(out.unlockTime, 40);
    // ... but not from another address, nor for another user.
    EXPECT_EQ(check(admin(), {.peer = "198.51.100.4", .forwarded = {}}), kDigestAuthenticated);
    EXPECT_EQ(check(header("viewer", "pw", freshNonce())), kDigestAuthenticated);
    // An X-Forwarded-For from a peer that is no trusted proxy changes nothing.
    EXPECT_EQ(check(admin(), {.forwarded = "203.0.113.9"}), kDigestRejected);
    korva::host::advanceClock(40 * 1000);
    EXPECT_EQ(check(admin()), kDigestAuthenticated);
    // Success resets the count; unknown users are counted like known ones.
    EXPECT_EQ(fail("admin"), 2);
    EXPECT_EQ(check(admin()), kDigestAuthenticated);
    EXPECT_EQ(fail("admin"), 2);
    EXPECT_EQ(fail("nobody"), 2);
    EXPECT_STREQ(out.devIndex, "");
    EXPECT_EQ(check(header("nobody", "", freshNonce())), kDigestRejected);  // no empty password
}

// The bound device index must fit the result with its terminator; one that does not is an error.
TEST_F(DigestCheck, DeviceIndexFillingTheResultIsRefused) {
    const size_t size = sizeof out.devIndex;
    for (const size_t length : {size - 1, size}) {
        korva::host::setAccounts({{"cam", "pw", std::string(length, 'd')}}, {});
        EXPECT_EQ(check(header("cam", "pw", freshNonce())),
                  length < size ? kDigestAuthenticated : 2);
        EXPECT_EQ(std::string(out.devIndex), length < size ? std::string(length, 'd') : "");
    }
}

TEST_F(DigestCheck, TrustedProxyForwardsTheClientAddress) {
    configure(korva::host::DigestAlgorithm::kMd5, {"192.0.2.0/24"});
    const Request attacker{.forwarded = "203.0.113.9"};  // through the proxy kPeer
    for (int i = 0; i < 3; ++i) fail("admin", attacker);
    EXPECT_EQ(out.unlockTime, 60);
    EXPECT_EQ(check(admin(), attacker), kDigestRejected);
    EXPECT_EQ(check(admin(), {.forwarded = "203.0.113.10"}), kDigestAuthenticated);
    EXPECT_EQ(check(admin()), kDigestAuthenticated);  // no header: the proxy's own address
}

TEST_F(DigestCheck, KnownAndUnknownNamesAnswerAlikeAfterAFloodOfJunkNames) {
    EXPECT_EQ(fail("admin"), 2);
    EXPECT_EQ(fail("ghost"), 2);
    for (int i = 0; i < 3; ++i) fail("viewer");  // locked
    // More junk names than the lock table holds: unlocked pairs are forgotten, known or not.
    const std::string nonce = freshNonce();
    const size_t flood = korva::host::LoginLockTable::kDefaultCapacity + 100;
    for (size_t i = 0; i < flood; ++i) {
        ASSERT_EQ(check(header("junk" + std::to_string(i), "x", nonce)), kDigestRejected);
    }
    DigestCheckResult known{}, unknown{};
    EXPECT_EQ(checkInto(&known, header("admin", "wrong", freshNonce())), kDigestRejected);
    EXPECT_EQ(checkInto(&unknown, header("ghost", "wrong", freshNonce())), kDigestRejected);
    EXPECT_EQ(known.retryLoginTime, unknown.retryLoginTime);
    EXPECT_EQ(known.unlockTime, unknown.unlockTime);
    EXPECT_EQ(challengeShape(known.challenge), challengeShape(unknown.challenge));
    EXPECT_STREQ(known.devIndex, unknown.devIndex);
    // The locked pair was not forgotten.
    EXPECT_EQ(check(header("viewer", "pw", freshNonce())), kDigestRejected);
    EXPECT_EQ(out.unlockTime, 60);
}

TEST_F(DigestCheck, MalformedHeadersAskForCredentials) {
    EXPECT_EQ(check("Digest username=\"admin\", realm=\"test realm\", nonce=\"x"),
              kDigestChallengeDue);
    EXPECT_EQ(out.retryLoginTime, 0);
    korva::host::allowDigestChecksWithoutRequest(true);
    DigestCheckRequest in;
    std::memset(&in, 'a', sizeof in);  // no terminating NUL anywhere
    EXPECT_EQ(QX_KORVAMgrBus_CheckDigest(&out, "GET", &in), kDigestChallengeDue);
    EXPECT_EQ(QX_KORVAMgrBus_CheckDigest(&out, "GET", nullptr), kDigestChallengeDue);
}

TEST_F(DigestCheck, ConcurrentChecks) {
    std::vector<std::thread> threads;
    std::atomic<int> ok{0};
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&ok, t] {
            const std::string nonce = freshNonce();
            const Request request{.peer = "192.0.2." + std::to_string(t + 1), .forwarded = {}};
            for (int i = 1; i <= 50; ++i) {
                char nc[9];
                std::snprintf(nc, sizeof nc, "%08x", i);
                const Answer answer{.nc = nc};
                DigestCheckResult result;
                ok += checkInto(&result, header("admin", "Admin12345", nonce, answer), request) ==
                      kDigestAuthenticated;
                checkInto(&result, header("viewer", "wrong", nonce, answer), request);
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(ok.load(), 200);
}
