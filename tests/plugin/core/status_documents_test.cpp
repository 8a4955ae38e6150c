// The XML status documents and the 401 document, byte for byte as the host's writer lays them
// out: declaration, then the root, two-space indentation, "\n" line ends.
#include <gtest/gtest.h>

#include "gateway/testing/harness.h"
#include "host/xml_base.h"
#include "plugin/pipeline/error_catalogue.h"
#include "plugin/pipeline/protocol_base.h"

namespace QXKORVAProtocol {
namespace {

using korva::testing::LogCapture;

constexpr char kDeclaration[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

// An unknown number gives the escaped URL only, and both lookups log it.
TEST(StatusDocuments, ErrorDocumentCarriesVersionAndTheRowsStatus) {
    const std::string head = std::string(kDeclaration) + "<ResponseStatus version=\"2.0\">\n";
    EXPECT_EQ(CProtocolBase::getResponseByError(0x40000007, "/KORVA/System/deviceInfo"),
              head +
                  "  <requestURL>/KORVA/System/deviceInfo</requestURL>\n"
                  "  <statusCode>4</statusCode>\n"
                  "  <statusString>Invalid Operation</statusString>\n"
                  "  <subStatusCode>notActivated</subStatusCode>\n</ResponseStatus>\n");
    LogCapture log;
    EXPECT_EQ(
        CProtocolBase::getResponseByError(0x3000100B, "/KORVA/x?a=1&b=<2>"),
        head + "  <requestURL>/KORVA/x?a=1&amp;b=&lt;2&gt;</requestURL>\n</ResponseStatus>\n");
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].module, "QXW");
    const char* expected[] = {")] [error=805310475] unkown error code",
                              ")] [iErrorNo=805310475] unkown error code."};
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(lines[i].level, 5);
        EXPECT_NE(lines[i].text.find(expected[i]), std::string::npos) << lines[i].text;
    }
}

TEST(StatusDocuments, StatusElementsAreAddedUnderTheCurrentRoot) {
    QXBase::CXmlBase doc;
    doc.CreateRoot("Answer");
    int httpStatus = 0;
    EXPECT_EQ(getResStatusByErrorNo(&httpStatus, 0x20000004, doc), 1);
    EXPECT_EQ(httpStatus, 503);
    doc.AddNode("after", "x");
    EXPECT_EQ(xmlToString(doc),
              "<Answer>\n  <statusCode>2</statusCode>\n  <statusString>Device Busy</statusString>\n"
              "  <subStatusCode>deviceBusy</subStatusCode>\n  <after>x</after>\n</Answer>\n");

    QXBase::CXmlBase empty;
    empty.CreateRoot("Answer");
    EXPECT_EQ(getResStatusByErrorNo(&httpStatus, 0, empty), 0);
    EXPECT_EQ(xmlToString(empty), "<Answer />\n");
}

TEST(StatusDocuments, SerialisationIsCutAtTheBufferSize) {
    QXBase::CXmlBase doc;
    doc.CreateRoot("Big");
    doc.AddNode("text", std::string(30000, 'a'));
    const std::string text = xmlToString(doc);
    EXPECT_EQ(text.size(), 20479u);
    EXPECT_EQ(text.substr(0, 13), "<Big>\n  <text");
    EXPECT_EQ(xmlToString(QXBase::CXmlBase()), "");
}

// Locked only with no attempts left and a positive unlock time; lock elements can be left out.
TEST(UnauthorizedDocument, LockInformationVariants) {
    const std::string head = std::string(kDeclaration) +
                             "<ResponseStatus>\n"
                             "  <requestURL>/KORVA/System/deviceInfo</requestURL>\n"
                             "  <statusCode>401</statusCode>\n"
                             "  <statusString>Unauthorized</statusString>\n"
                             "  <subStatusCode>badAuthorization</subStatusCode>\n";
    const std::string locked =
        "  <lockStatus>locked</lockStatus>\n  <unlockTime>180</unlockTime>\n";
    const std::string unlocked = "  <lockStatus>unlocked</lockStatus>\n";
    const struct {
        int retryLoginTime, unlockTime, withoutLockInfo;
        std::string lockElements;
    } cases[] = {
        {0, 180, 0, locked + "  <retryLoginTime>0</retryLoginTime>\n"},
        {3, 0, 0, unlocked + "  <retryLoginTime>3</retryLoginTime>\n"},
        {2, 60, 0, unlocked + "  <retryLoginTime>2</retryLoginTime>\n"},
        {0, -5, 0, unlocked + "  <retryLoginTime>0</retryLoginTime>\n"},
        {0, 180, 1, ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(
            CProtocolBase::getUnauthorizedResponse("/KORVA/System/deviceInfo", c.retryLoginTime,
                                                   c.unlockTime, c.withoutLockInfo),
            head + c.lockElements + "</ResponseStatus>\n")
            << c.retryLoginTime << " " << c.unlockTime << " " << c.withoutLockInfo;
    }
}

}  // namespace
}  // namespace QXKORVAProtocol
