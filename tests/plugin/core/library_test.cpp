// libkorva_protocol.so loaded with dlopen, as the gateway loads it: the entry points resolve by
// their plain names and answer an unclaimed request; the re-exported runtime members work.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include "gateway/testing/harness.h"
#include "host/plugin_abi.h"
#include "host/sqlite3_do.h"

namespace {

using korva::testing::HostFixture;
using korva::testing::TestRequest;

class LibraryTest : public ::testing::Test {
  protected:
    void SetUp() override {
        m_library = dlopen(KORVA_PROTOCOL_LIBRARY, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(m_library, nullptr) << dlerror();
    }
    // The library stays loaded: its alert service singleton lives as long as the library.

    template <typename Fn>
    Fn resolve(const char* name) {
        return reinterpret_cast<Fn>(dlsym(m_library, name));
    }

    void* m_library = nullptr;
};

TEST_F(LibraryTest, EntryPointsServeAnUnclaimedRequest) {
    HostFixture host;
    auto init = resolve<QX_Protocol_Init_Fn>(QX_PROTOCOL_INIT_SYMBOL);
    auto uninit = resolve<QX_Protocol_Uninit_Fn>(QX_PROTOCOL_UNINIT_SYMBOL);
    auto process = resolve<QX_Protocol_HTTPProcess_Fn>(QX_PROTOCOL_HTTPPROCESS_SYMBOL);
    ASSERT_NE(init, nullptr);
    ASSERT_NE(uninit, nullptr);
    ASSERT_NE(process, nullptr);

    EXPECT_EQ(init(), 1);
    const TestRequest request(QXHttpService::kMethodGet, "/KORVA/NoSuch/resource");
    int handled = 7;
    int asyncReply = 0;
    std::string response;
    EXPECT_EQ(process(&handled, &response, &asyncReply, request.holder()), -1);
    EXPECT_EQ(handled, 0);
    EXPECT_EQ(asyncReply, 0);
    EXPECT_EQ(response,
              "{\"errorCode\":1073741830,\"errorMsg\":\"Invalid operation.\",\"statusCode\":4,"
              "\"statusString\":\"Invalid Operation\",\"subStatusCode\":\"invalidOperation\"}\n");
    EXPECT_EQ(uninit(), 0);
}

TEST_F(LibraryTest, InternalNamesStayHidden) {
    for (const char* name : {"_ZN15QXKORVAProtocol13CProtocolBase4procEPiPNSt7__cxx1112basic_"
                             "stringIcSt11char_traitsIcESaIcEEES1_RK14ExchangeHolder",
                             "_ZN15QXKORVAProtocol18getErrorNoByResultEi"}) {
        EXPECT_EQ(dlsym(m_library, name), nullptr) << name;
    }
}

// The recordset's private index check, called through the library's exported copy.
TEST_F(LibraryTest, ExportedRecordsetIndexCheck) {
    using CheckIndex = bool (*)(const Sqlite3DO::CSQLite3Recordset*, int32_t);
    auto check = resolve<CheckIndex>("_ZNK9Sqlite3DO17CSQLite3Recordset10CheckIndexEi");
    ASSERT_NE(check, nullptr) << dlerror();
    const Sqlite3DO::CSQLite3Recordset recordset(nullptr, nullptr, 3, false);
    EXPECT_FALSE(check(&recordset, -1));
    EXPECT_TRUE(check(&recordset, 0));
    EXPECT_TRUE(check(&recordset, 2));
    EXPECT_FALSE(check(&recordset, 3));
}

}  // namespace
