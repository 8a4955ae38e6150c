// Digest arithmetic, header parsing and the host's digest check.
#include <gtest/gtest.h>

#include <cstring>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "gateway/hostlib/digest_header.h"
#include "gateway/hostlib/digest_math.h"
#include "gateway/hostlib/host_control.h"
#include "host/config_mgr.h"
#include "host/digest_check.h"
#include "host/host_util.h"

namespace digest = korva::host::digest;
using digest::Algorithm;

namespace {

std::string expectedResponse(Algorithm algorithm, const std::string& user,
                             const std::string& realm, const std::string& password,
                             const std::string& method, const std::string& uri,
                             const std::string& nonce, const std::string& nc,
                             const std::string& cnonce) {
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
        "realm = \"r\" ,nonce=\"n\",uri=\"/a?b=1,2\",response=\"" + std::string(32, 'A') +
        "\",opaque=\"o\",algorithm=md5";
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
        "cnonce=\"c\", response=\"" + std::string(32, '0') + "\"";
    ASSERT_TRUE(digest::parseCredentials("Digest " + good));
    auto with = [&](const char* from, const char* to) {
        return "Digest " + std::regex_replace(good, std::regex(from), to);
    };
    const std::string d = "Digest " + good;
    const std::string bad[] = {
        "", "Basic dXNlcjpwYXNz", "Digest", "Digest ", "Digestusername=\"u\"",
        d + ", username=\"v\"",  // repeated parameter
        d + ", x", d + ", x=\"open", d + " trailing", d + ", x=\"a\\", d + ", x=\"a\x01\"",
        d + ", algorithm=MD5-sess", d + ", algorithm=SHA-512-256", d + ", userhash=true",
        d + ", algorithm=SHA-256",  // a 32-digit response is not SHA-256
        with("qop=auth", "qop=auth-int"), with("nc=00000001", "nc=1"),
        with("nc=00000001", "nc=0000000g"), with("nc=00000001", "nc=00000000"),
        with("cnonce=\"c\", ", ""), with("response=\"0", "response=\""),
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

namespace {

constexpr const char* kRealm = "test realm";

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
        korva::host::useRealClock();
    }

    void configure(korva::host::DigestAlgorithm algorithm) {
        korva::host::AuthSettings settings;
        settings.algorithm = algorithm;
        settings.maxAttempts = 3;
        settings.lockSeconds = 60;
        settings.nonceLifetimeSeconds = 300;
        korva::host::setAccounts({{"admin", "Admin12345", "cam-1"}, {"viewer", "pw", "cam-2"}},
                                 settings);
    }

    static std::string freshNonce() {
        char buffer[64] = {};
        EXPECT_EQ(CreateNonce(buffer, sizeof buffer), 0);
        return buffer;
    }

    static std::string header(const std::string& user, const std::string& password,
                              const std::string& nonce, const std::string& nc = "00000001",
                              Algorithm algorithm = Algorithm::kMd5,
                              const std::string& method = "GET") {
        const std::string uri = "/KORVA/System/deviceInfo";
        const std::string cnonce = "0a4f113b";
        return "Digest username=\"" + user + "\", realm=\"" + kRealm + "\", nonce=\"" + nonce +
               "\", uri=\"" + uri + "\", qop=auth, nc=" + nc + ", cnonce=\"" + cnonce +
               "\", algorithm=" + digest::algorithmName(algorithm) + ", response=\"" +
               expectedResponse(algorithm, user, kRealm, password, method, uri, nonce, nc,
                                cnonce) +
               "\"";
    }

    static int checkInto(DigestCheckResult* result, const std::string& authorization,
                         const std::string& method = "GET") {
        DigestCheckRequest in{};
        std::strncpy(in.authorization, authorization.c_str(), sizeof in.authorization - 1);
        *result = DigestCheckResult{};
        return QX_KORVAMgrBus_CheckDigest(result, method, &in);
    }
    int check(const std::string& authorization, const std::string& method = "GET") {
        return checkInto(&out, authorization, method);
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

TEST_F(DigestCheck, AuthenticatesBothAlgorithmsAndNamesTheDevice) {
    EXPECT_EQ(check(header("admin", "Admin12345", freshNonce())), kDigestAuthenticated);
    EXPECT_STREQ(out.devIndex, "cam-1");
    EXPECT_EQ(check(header("viewer", "pw", freshNonce(), "00000001", Algorithm::kSha256, "PUT"),
                    "PUT"),
              kDigestAuthenticated);
    EXPECT_STREQ(out.devIndex, "cam-2");
    // The method takes part in the response.
    EXPECT_EQ(check(header("viewer", "pw", freshNonce(), "00000001", Algorithm::kMd5, "PUT"),
                    "GET"),
              kDigestRejected);
}

TEST_F(DigestCheck, RefusesReplayedNonceCounts) {
    const std::string nonce = freshNonce();
    EXPECT_EQ(check(header("admin", "Admin12345", nonce, "00000001")), kDigestAuthenticated);
    EXPECT_EQ(check(header("admin", "Admin12345", nonce, "00000001")), kDigestChallengeDue);
    EXPECT_EQ(check(header("admin", "Admin12345", nonce, "00000003")), kDigestAuthenticated);
    EXPECT_EQ(check(header("admin", "Admin12345", nonce, "00000002")), kDigestChallengeDue);
    EXPECT_EQ(check(header("admin", "Admin12345", nonce, "0000000a")), kDigestAuthenticated);
}

TEST_F(DigestCheck, ExpiredNoncesAreStaleForeignNoncesAndRealmsRefused) {
    const std::string nonce = freshNonce();
    korva::host::advanceClock(300 * 1000);
    EXPECT_EQ(check(header("admin", "Admin12345", nonce, "00000001")), kDigestAuthenticated);
    korva::host::advanceClock(1);
    EXPECT_EQ(check(header("admin", "Admin12345", nonce, "00000002")), kDigestChallengeDue);
    EXPECT_EQ(challengeShape(out.challenge), "MD5 TRUE") << out.challenge;

    std::string forged = freshNonce();
    forged[5] = forged[5] == 'A' ? 'B' : 'A';
    EXPECT_EQ(check(header("admin", "Admin12345", forged)), kDigestChallengeDue);
    EXPECT_EQ(check(header("admin", "Admin12345", "dcd98b7102dd2f0e8b11d0f600bfb0c093")),
              kDigestChallengeDue);
    korva::host::setUserConfig(true, "another realm");
    EXPECT_EQ(check(header("admin", "Admin12345", freshNonce())), kDigestChallengeDue);
}

TEST_F(DigestCheck, LocksOutAfterRepeatedFailures) {
    EXPECT_EQ(check(header("admin", "wrong", freshNonce())), kDigestRejected);
    EXPECT_EQ(out.retryLoginTime, 2);
    EXPECT_EQ(out.unlockTime, 0);
    EXPECT_EQ(challengeShape(out.challenge), "MD5 FALSE");  // the client may retry
    EXPECT_EQ(check(header("admin", "wrong", freshNonce())), kDigestRejected);
    EXPECT_EQ(out.retryLoginTime, 1);
    EXPECT_EQ(check(header("admin", "wrong", freshNonce())), kDigestRejected);
    EXPECT_EQ(out.retryLoginTime, 0);
    EXPECT_EQ(out.unlockTime, 60);
    // The right password is refused while locked; other users are not affected.
    korva::host::advanceClock(20 * 1000 + 1);
    EXPECT_EQ(check(header("admin", "Admin12345", freshNonce())), kDigestRejected);
    EXPECT_EQ(out.retryLoginTime, 0);
    EXPECT_EQ(out.unlockTime, 40);
    EXPECT_EQ(check(header("viewer", "pw", freshNonce())), kDigestAuthenticated);
    korva::host::advanceClock(40 * 1000);
    EXPECT_EQ(check(header("admin", "Admin12345", freshNonce())), kDigestAuthenticated);
    // Success resets the count.
    EXPECT_EQ(check(header("admin", "wrong", freshNonce())), kDigestRejected);
    EXPECT_EQ(out.retryLoginTime, 2);
    EXPECT_EQ(check(header("admin", "Admin12345", freshNonce())), kDigestAuthenticated);
    EXPECT_EQ(check(header("admin", "wrong", freshNonce())), kDigestRejected);
    EXPECT_EQ(out.retryLoginTime, 2);
    // Unknown users are counted like known ones.
    EXPECT_EQ(check(header("nobody", "x", freshNonce())), kDigestRejected);
    EXPECT_EQ(out.retryLoginTime, 2);
    EXPECT_STREQ(out.devIndex, "");
}

TEST_F(DigestCheck, MalformedHeadersAskForCredentials) {
    EXPECT_EQ(check("Digest username=\"admin\", realm=\"test realm\", nonce=\"x"),
              kDigestChallengeDue);
    EXPECT_EQ(out.retryLoginTime, 0);
    DigestCheckRequest in;
    std::memset(&in, 'a', sizeof in);  // no terminating NUL anywhere
    EXPECT_EQ(QX_KORVAMgrBus_CheckDigest(&out, "GET", &in), kDigestChallengeDue);
    EXPECT_EQ(QX_KORVAMgrBus_CheckDigest(&out, "GET", nullptr), kDigestChallengeDue);
}

TEST_F(DigestCheck, ConcurrentChecks) {
    std::vector<std::thread> threads;
    std::atomic<int> ok{0};
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&ok] {
            const std::string nonce = freshNonce();
            for (int i = 1; i <= 50; ++i) {
                char nc[9];
                std::snprintf(nc, sizeof nc, "%08x", i);
                DigestCheckResult result;
                ok += checkInto(&result, header("admin", "Admin12345", nonce, nc)) ==
                      kDigestAuthenticated;
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(ok.load(), 200);
}
