// Answer serialisation, path patterns and the admin API's path decoding.
#include <gtest/gtest.h>

#include <boost/beast/http/write.hpp>
#include <sstream>

#include "gateway/server/access_log.h"
#include "gateway/server/admin_handler.h"
#include "gateway/server/default_content_type.h"
#include "gateway/server/http_answer.h"
#include "gateway/server/json_error.h"
#include "gateway/sim/path_pattern.h"

namespace korva {
namespace {

TEST(HttpWire, GuessesTheContentTypeOfABody) {
    const std::pair<const char*, const char*> cases[] = {
        {"<?xml version=\"1.0\"?><a/>", "application/xml"},
        {"\r\n  <a/>", "application/xml"},
        {"{\"a\":1}", "application/json"},
        {"[1]", "application/json"},
        {"plain", "text/plain"},
        {"", ""}};
    for (const auto& [body, type] : cases) EXPECT_EQ(gateway::guessContentType(body), type) << body;
}

std::string onTheWire(const gateway::HttpAnswer& answer) {
    std::ostringstream out;
    out << answer;  // Beast's serializer, as the connection drives it
    return out.str();
}

TEST(HttpWire, AnswerOwnsItsFramingAndDropsHeadersThatWouldSplitTheHead) {
    const gateway::HeaderList headers = {
        {"Content-Type", "application/xml"}, {"Content-Length", "999"},
        {"X-Evil", "a\r\nInjected: 1"},      {"transfer-encoding", "chunked"},
        {"X-Long", std::string(70000, 'v')}, {"connection", "close"}};
    const std::string head = "HTTP/1.1 201 Created\r\nContent-Type: application/xml\r\n";
    EXPECT_EQ(onTheWire(gateway::makeAnswer(201, headers, "<a/>", true)),
              head + "Content-Length: 4\r\nConnection: keep-alive\r\n\r\n<a/>");
    EXPECT_EQ(onTheWire(gateway::makeStreamHead(201, headers)), head + "Connection: close\r\n\r\n");
    EXPECT_EQ(onTheWire(gateway::makeAnswer(42, {}, "", false)),
              "HTTP/1.1 500 Internal Server Error\r\nContent-Length: 0\r\n"
              "Connection: close\r\n\r\n");
}

TEST(HttpWire, JsonErrorEscapesText) {
    EXPECT_EQ(gateway::jsonError(404, "no \"x\"\n"),
              "{\"error\":\"no \\\"x\\\"\\n\",\"status\":404}\n");
}

TEST(AccessLog, RequestTextIsMadeSafeAndTheDigestUserFound) {
    EXPECT_EQ(gateway::logSafe("/a\"b\\c\r\n\x01\xff z"), "/a\\x22b\\x5Cc\\x0D\\x0A\\x01\\xFF z");
    EXPECT_EQ(gateway::logSafe("abcdef", 3), "abc...");
    const std::pair<const char*, const char*> users[] = {
        {"Digest username=\"bob\", realm=\"r\"", "bob"},
        {"digest realm=\"a, username=x\",   username=alice , nc=1", "alice"},
        {"Digest realm=\"r\", username=\"", ""},
        {"Bearer username=\"bob\"", ""},
        {"Digest usernam=\"bob\"", ""}};
    for (const auto& [header, user] : users) EXPECT_EQ(gateway::authorizationUser(header), user);
}

TEST(PathPattern, MatchesSegmentsAndIntegers) {
    struct Case {
        const char* pattern;
        const char* path;
        bool matches;
        std::vector<int> numbers;
    };
    const Case cases[] = {
        {"/a/{}/b/{}", "/a/12/b/-3", true, {12, -3}},
        {"/a/{}", "/a/101/", false, {}},
        {"/a/{}", "/a/x1", false, {}},
        {"/a/{}", "/a/", false, {}},
        {"/a/{}", "/a/1234567890", false, {}},
        {"/a", "/a/b", false, {}},
        {"/a/b", "/a", false, {}},
        {"/a/b", "/A/b", false, {}},
    };
    for (const Case& c : cases) {
        std::vector<int> numbers;
        EXPECT_EQ(sim::matchPath(c.pattern, c.path, &numbers), c.matches) << c.path;
        if (c.matches) {
            EXPECT_EQ(numbers, c.numbers) << c.path;
        }
    }
}

TEST(AdminPaths, PercentDecoding) {
    std::string out;
    EXPECT_TRUE(gateway::percentDecode("cam%2D1%20x", &out));
    EXPECT_EQ(out, "cam-1 x");
    for (const char* bad : {"%", "%2", "%zz", "a%g0"}) {
        EXPECT_FALSE(gateway::percentDecode(bad, &out)) << bad;
    }
}

}  // namespace
}  // namespace korva
