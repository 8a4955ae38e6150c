// Qualified function names for log lines, and gateway URL formatting.
#include <gtest/gtest.h>

#include "plugin/pipeline/plugin_log.h"
#include "plugin/relay/gateway_url.h"

namespace QXKORVAProtocol {
namespace {

TEST(QualifiedFunctionName, StripsReturnTypeAndParameters) {
    const struct {
        const char* pretty;
        const char* name;
    } cases[] = {
        {"virtual int QXKORVAProtocol::CDevCfgBase::procProtocol(int*, std::string*, int*, "
         "const ExchangeHolder&, const std::string&)",
         "QXKORVAProtocol::CDevCfgBase::procProtocol"},
        {"static int QXKORVAProtocol::CDevCfgBase::deviceCfgCallBack(const char*, int, void*)",
         "QXKORVAProtocol::CDevCfgBase::deviceCfgCallBack"},
        {"int QXKORVAProtocol::getResStatusByErrorNo(int*, int, QXBase::CXmlBase&)",
         "QXKORVAProtocol::getResStatusByErrorNo"},
        {"QXKORVAProtocol::CEventPto::CEventPto()", "QXKORVAProtocol::CEventPto::CEventPto"},
        {"std::map<int, std::pair<int, int> > QXKORVAProtocol::CEventPto::streams(const "
         "std::vector<int>&) const",
         "QXKORVAProtocol::CEventPto::streams"},
        {"static T* QXKORVAProtocol::CSingleton<T>::getInstance() [with T = "
         "QXKORVAProtocol::CEventPto]",
         "QXKORVAProtocol::CSingleton<T>::getInstance"},
        {"QXKORVAProtocol::CEventPto::start()::<lambda(int)>", "QXKORVAProtocol::CEventPto::start"},
        {"bool QXKORVAProtocol::CKey::operator<(const QXKORVAProtocol::CKey&) const",
         "QXKORVAProtocol::CKey::operator<"},
        {"void QXKORVAProtocol::CTask::operator()()", "QXKORVAProtocol::CTask::operator()"},
        {"unsigned int QXKORVAProtocol::tick()", "QXKORVAProtocol::tick"},
        {"static void QXKORVAProtocol::CEventPto::stop()::Local::run(int, int)",
         "QXKORVAProtocol::CEventPto::stop()::Local::run"},
        {"void QXKORVAProtocol::(anonymous namespace)::helper(int)",
         "QXKORVAProtocol::(anonymous namespace)::helper"},
        {"QXKORVAProtocol::CEventPto::start()::<lambda(auto:11)> [with auto:11 = int]",
         "QXKORVAProtocol::CEventPto::start"},
        {"plain", "plain"},
        {"", ""},
    };
    for (const auto& c : cases) EXPECT_EQ(qualifiedFunctionName(c.pretty), c.name) << c.pretty;
}

TEST(QualifiedFunctionName, NamesTheCallingMember) {
    struct Probe {
        static std::string name() { return qualifiedFunctionName(__PRETTY_FUNCTION__); }
    };
    const std::string name = Probe::name();
    EXPECT_EQ(name.rfind("QXKORVAProtocol::", 0), 0u) << name;
    EXPECT_TRUE(name.ends_with("::Probe::name")) << name;
}

TEST(GatewayUrl, FormatsWhatFitsAndRefusesTheRest) {
    std::string url = "stale";
    EXPECT_TRUE(formatGatewayUrl(&url, "/KORVA/System/deviceInfo?format=json&devIndex=%s", "d1"));
    EXPECT_EQ(url, "/KORVA/System/deviceInfo?format=json&devIndex=d1");

    const std::string prefix = "/KORVA/x?format=json&devIndex=";
    const std::string fits(kGatewayUrlBufferSize - 1 - prefix.size(), 'd');
    EXPECT_TRUE(formatGatewayUrl(&url, "%s%s", prefix.c_str(), fits.c_str()));
    EXPECT_EQ(url.size(), kGatewayUrlBufferSize - 1);

    const std::string tooLong = fits + "X";
    url = "stale";
    EXPECT_FALSE(formatGatewayUrl(&url, "%s%s", prefix.c_str(), tooLong.c_str()));
    EXPECT_EQ(url, "");

    EXPECT_FALSE(formatGatewayUrl(nullptr, "%s", "x"));
}

}  // namespace
}  // namespace QXKORVAProtocol
