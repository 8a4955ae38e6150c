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

TEST(StatusDocuments, ErrorDocumentCarriesVersionAndTheRowsStatus) {
    EXPECT_EQ(CProtocolBase::getResponseByError(0x40000007, "/KORVA/System/deviceInfo"),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
              "<ResponseStatus version=\"2.0\">\n"
              "  <requestURL>/KORVA/System/deviceInfo</requestURL>\n"
              "  <statusCode>4</statusCode>\n"
              "  <statusString>Invalid Operation</statusString>\n"
              "  <subStatusCode>notActivated</subStatusCode>\n"
              "</ResponseStatus>\n");
}

TEST(StatusDocuments, SuccessDocument) {
    EXPECT_EQ(CProtocolBase::getResponseByError(1, "/KORVA/Streaming/channels/101"),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
              "<ResponseStatus version=\"2.0\">\n"
              "  <requestURL>/KORVA/Streaming/channels/101</requestURL>\n"
              "  <statusCode>1</statusCode>\n"
              "  <statusString>OK</statusString>\n"
              "  <subStatusCode>ok</subStatusCode>\n"
              "</ResponseStatus>\n");
}

TEST(StatusDocuments, UnknownNumberGivesTheUrlOnlyAndLogsTwice) {
    LogCapture log;
    EXPECT_EQ(CProtocolBase::getResponseByError(0x3000100B, "/KORVA/x?a=1&b=<2>"),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
              "<ResponseStatus version=\"2.0\">\n"
              "  <requestURL>/KORVA/x?a=1&amp;b=&lt;2&gt;</requestURL>\n"
              "</ResponseStatus>\n");
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].level, 5);
    EXPECT_EQ(lines[0].module, "QXW");
    EXPECT_NE(lines[0].text.find("[QXKORVAProtocol::getResStatusByErrorNo("), std::string::npos)
        << lines[0].text;
    EXPECT_NE(lines[0].text.find(")] [error=805310475] unkown error code"), std::string::npos);
    EXPECT_EQ(lines[1].level, 5);
    EXPECT_NE(lines[1].text.find("[QXKORVAProtocol::CProtocolBase::getResponseByError("),
              std::string::npos)
        << lines[1].text;
    EXPECT_NE(lines[1].text.find(")] [iErrorNo=805310475] unkown error code."), std::string::npos);
}

TEST(StatusDocuments, StatusElementsAreAddedUnderTheCurrentRoot) {
    QXBase::CXmlBase doc;
    doc.CreateRoot("Answer");
    int httpStatus = 0;
    EXPECT_EQ(getResStatusByErrorNo(&httpStatus, 0x20000004, doc), 1);
    EXPECT_EQ(httpStatus, 503);
    doc.AddNode("after", "x");
    EXPECT_EQ(xmlToString(doc),
              "<Answer>\n"
              "  <statusCode>2</statusCode>\n"
              "  <statusString>Device Busy</statusString>\n"
              "  <subStatusCode>deviceBusy</subStatusCode>\n"
              "  <after>x</after>\n"
              "</Answer>\n");

    QXBase::CXmlBase empty;
    empty.CreateRoot("Answer");
    LogCapture log;
    EXPECT_EQ(getResStatusByErrorNo(&httpStatus, 0, empty), 0);
    EXPECT_EQ(xmlToString(empty), "<Answer />\n");
    EXPECT_TRUE(log.contains("[error=0] unkown error code", 5));
}

TEST(StatusDocuments, SerialisationIsCutAtTheBufferSize) {
    QXBase::CXmlBase doc;
    doc.CreateRoot("Big");
    doc.AddNode("text", std::string(30000, 'a'));
    const std::string text = xmlToString(doc);
    EXPECT_EQ(text.size(), 20479u);
    EXPECT_EQ(text.substr(0, 13), "<Big>\n  <text");

    QXBase::CXmlBase nothing;
    EXPECT_EQ(xmlToString(nothing), "");
}

TEST(UnauthorizedDocument, LockInformationVariants) {
    const std::string head =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<ResponseStatus>\n"
        "  <requestURL>/KORVA/System/deviceInfo</requestURL>\n"
        "  <statusCode>401</statusCode>\n"
        "  <statusString>Unauthorized</statusString>\n"
        "  <subStatusCode>badAuthorization</subStatusCode>\n";
    const std::string tail = "</ResponseStatus>\n";
    const struct {
        int retryLoginTime;
        int unlockTime;
        int withoutLockInfo;
        std::string lockElements;
    } cases[] = {
        {0, 180, 0,
         "  <lockStatus>locked</lockStatus>\n"
         "  <unlockTime>180</unlockTime>\n"
         "  <retryLoginTime>0</retryLoginTime>\n"},
        {3, 0, 0,
         "  <lockStatus>unlocked</lockStatus>\n"
         "  <retryLoginTime>3</retryLoginTime>\n"},
        {0, 0, 0,
         "  <lockStatus>unlocked</lockStatus>\n"
         "  <retryLoginTime>0</retryLoginTime>\n"},
        // A user with attempts left is not locked, whatever the unlock time says.
        {2, 60, 0,
         "  <lockStatus>unlocked</lockStatus>\n"
         "  <retryLoginTime>2</retryLoginTime>\n"},
        {-1, 0, 0,
         "  <lockStatus>unlocked</lockStatus>\n"
         "  <retryLoginTime>-1</retryLoginTime>\n"},
        {0, -5, 0,
         "  <lockStatus>unlocked</lockStatus>\n"
         "  <retryLoginTime>0</retryLoginTime>\n"},
        {0, 180, 1, ""},
        {4, 0, 7, ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(
            CProtocolBase::getUnauthorizedResponse("/KORVA/System/deviceInfo", c.retryLoginTime,
                                                   c.unlockTime, c.withoutLockInfo),
            head + c.lockElements + tail)
            << c.retryLoginTime << " " << c.unlockTime << " " << c.withoutLockInfo;
    }
}

}  // namespace
}  // namespace QXKORVAProtocol
