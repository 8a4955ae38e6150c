// Qualified function names for log lines, and gateway URL formatting.
#include <gtest/gtest.h>

#include "plugin/pipeline/plugin_log.h"
#include "plugin/relay/gateway_url.h"

namespace QXKORVAProtocol {
namespace {

TEST(QualifiedFunctionName, StripsReturnTypeParametersAndLambdaSuffixes) {
    const std::pair<const char*, const char*> cases[] = {
        {"static int QXKORVAProtocol::CDevCfgBase::deviceCfgCallBack(const char*, int, void*)",
         "QXKORVAProtocol::CDevCfgBase::deviceCfgCallBack"},
        {"std::map<int, std::pair<int, int> > QXKORVAProtocol::CEventPto::streams(const "
         "std::vector<int>&) const",
         "QXKORVAProtocol::CEventPto::streams"},
        {"static T* QXKORVAProtocol::CSingleton<T>::getInstance() [with T = X]",
         "QXKORVAProtocol::CSingleton<T>::getInstance"},
        {"QXKORVAProtocol::CEventPto::start()::<lambda(auto:11)> [with auto:11 = int]",
         "QXKORVAProtocol::CEventPto::start"},
        {"bool QXKORVAProtocol::CKey::operator<(const QXKORVAProtocol::CKey&) const",
         "QXKORVAProtocol::CKey::operator<"},
        {"static void QXKORVAProtocol::CEventPto::stop()::Local::run(int, int)",
         "QXKORVAProtocol::CEventPto::stop()::Local::run"},
        {"void QXKORVAProtocol::(anonymous namespace)::helper(int)",
         "QXKORVAProtocol::(anonymous namespace)::helper"},
        {"", ""},
    };
    for (const auto& [pretty, name] : cases) EXPECT_EQ(qualifiedFunctionName(pretty), name);
}

TEST(GatewayUrl, FormatsWhatFitsAndRefusesTheRest) {
    const std::string prefix = "/KORVA/x?format=json&devIndex=";
    const std::string fits(kGatewayUrlBufferSize - 1 - prefix.size(), 'd');
    std::string url = "stale";
    EXPECT_TRUE(formatGatewayUrl(&url, "%s%s", prefix.c_str(), fits.c_str()));
    EXPECT_EQ(url, prefix + fits);
    url = "stale";
    EXPECT_FALSE(formatGatewayUrl(&url, "%s%sX", prefix.c_str(), fits.c_str()));
    EXPECT_EQ(url, "");
    EXPECT_FALSE(formatGatewayUrl(nullptr, "%s", "x"));
}

}  // namespace
}  // namespace QXKORVAProtocol
