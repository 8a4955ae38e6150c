// X-Forwarded-For as the plug-in takes it: the input is the header value. getClientAddress must
// give the first entry cut at 48 characters; then the whole request pipeline runs on an
// unauthenticated GET carrying the header (the first entry goes into the digest check's record),
// which must answer 401 with a challenge.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/fuzz_support.h"
#include "gateway/testing/harness.h"
#include "plugin/entry/plugin_entry.h"
#include "plugin/pipeline/protocol_base.h"

namespace {

korva::testing::HostFixture* g_host = nullptr;  // lives for the whole run

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    korva::fuzz::quietHostLog();
    g_host = new korva::testing::HostFixture;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string header(reinterpret_cast<const char*>(data), size);
    korva::testing::TestRequest request(QXHttpService::kMethodGet, "/KORVA/System/deviceInfo", {},
                                        {{"X-Forwarded-For", header}});

    const std::string first = QXKORVAProtocol::CProtocolBase::getClientAddress(request.holder());
    const std::string expected = header.substr(0, header.find(',')).substr(0, 48);
    korva::fuzz::require(first == expected, "client address is not the first entry", first);

    int handled = 0;
    int asyncReply = 0;
    std::string response;
    const int status = QX_Protocol_HTTPProcess(&handled, &response, &asyncReply, request.holder());
    korva::fuzz::require(status == 401 && handled == 1 && asyncReply == 0,
                         "unauthenticated request not challenged", std::to_string(status));
    korva::fuzz::require(
        request.exchange().answerHeader("WWW-Authenticate").rfind("Digest ", 0) == 0,
        "401 without a digest challenge", request.exchange().answerHeader("WWW-Authenticate"));
    return 0;
}
