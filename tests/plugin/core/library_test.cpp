// libkorva_protocol.so loaded with dlopen as the gateway loads it: the entry points resolve by
// their plain names and answer an unclaimed request. (The re-exported runtime members: the
// exports check, and SupportClasses in the host tests.)
#include <dlfcn.h>
#include <gtest/gtest.h>

#include "gateway/testing/harness.h"
#include "host/plugin_abi.h"

namespace {

// The library stays loaded: its alert service singleton lives as long as the library.
void* library() {
    static void* handle = dlopen(KORVA_PROTOCOL_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    return handle;
}

template <typename Fn>
Fn resolve(const char* name) {
    return reinterpret_cast<Fn>(dlsym(library(), name));
}

TEST(Library, EntryPointsServeAnUnclaimedRequest) {
    ASSERT_NE(library(), nullptr) << dlerror();
    korva::testing::HostFixture host;
    auto init = resolve<QX_Protocol_Init_Fn>(QX_PROTOCOL_INIT_SYMBOL);
    auto uninit = resolve<QX_Protocol_Uninit_Fn>(QX_PROTOCOL_UNINIT_SYMBOL);
    auto process = resolve<QX_Protocol_HTTPProcess_Fn>(QX_PROTOCOL_HTTPPROCESS_SYMBOL);
    ASSERT_TRUE(init && uninit && process);

    EXPECT_EQ(init(), 1);
    const korva::testing::TestRequest request(QXHttpService::kMethodGet, "/KORVA/NoSuch/x");
    int handled = 7, asyncReply = 0;
    std::string response;
    EXPECT_EQ(process(&handled, &response, &asyncReply, request.holder()), -1);
    EXPECT_EQ(handled, 0);
    EXPECT_NE(response.find("invalidOperation"), std::string::npos);  // its bytes: entry_test
    EXPECT_EQ(uninit(), 0);
}

}  // namespace
