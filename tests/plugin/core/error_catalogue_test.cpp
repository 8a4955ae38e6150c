// The error catalogue's content and lookups, and the result-code table.
#include "plugin/pipeline/error_catalogue.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace QXKORVAProtocol {
namespace {

// subStatusCode of a number, "" when the catalogue does not know it.
std::string subStatusOf(uint32_t errorNumber) {
    Json::Value status;
    int httpStatus = 0;
    if (!getJsonResponseByError(errorNumber, status, &httpStatus)) return "";
    return status["subStatusCode"].asString();
}

TEST(ErrorCatalogue, HoldsEveryRowInItsCategory) {
    EXPECT_EQ(errorCatalogueSize(), 679u);
    const size_t expected[] = {0, 2, 11, 33, 424, 3, 204, 2, 0};
    for (int category = 0; category <= 8; ++category) {
        EXPECT_EQ(errorCatalogueSize(category), expected[category]) << category;
    }
}

// Rows at the edges of runs next to gaps carry their status, HTTP status, message and
// subStatusCode; numbers in those gaps (or without a category) find nothing.
TEST(ErrorCatalogue, FindsRowsByNumberAndNothingInTheGaps) {
    const struct {
        uint32_t number;
        int statusCode, httpStatus;
        const char *statusString, *errorMsg, *subStatus;
    } rows[] = {
        {0x00000001, 1, 200, "OK", "Operation completed.", "ok"},
        {0x40000003, 4, 403, "Invalid Operation", "Authentication failed.", "badAuthorization"},
        {0x70000002, 7, 200, "Reboot Required", "autoReboot", "autoReboot"},
        {0x20000004, 2, 503, "Device Busy", "", nullptr},
        {0x10000002, 1, 200, nullptr, nullptr, "riskPassword"},
        {0x3000100C, 3, 500, nullptr, nullptr, "uninitialized"},
        {0x400010A2, 4, 403, nullptr, nullptr, "libraryArmed"},
        {0x6000005F, 6, 400, nullptr, nullptr, "passworLlenNoMoreThan16"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << std::hex << row.number);
        Json::Value status;
        int httpStatus = 0;
        ASSERT_TRUE(getJsonResponseByError(row.number, status, &httpStatus));
        EXPECT_EQ(status["statusCode"].asInt(), row.statusCode);
        EXPECT_EQ(httpStatus, row.httpStatus);
        if (row.statusString) {
            EXPECT_EQ(status["statusString"], row.statusString);
        }
        if (row.errorMsg) {
            EXPECT_EQ(status["errorMsg"], row.errorMsg);
        }
        if (row.subStatus) {
            EXPECT_EQ(status["subStatusCode"], row.subStatus);
        }
    }
    for (uint32_t number : {0x00000000u, 0x10000001u, 0x2000000Cu, 0x3000100Bu, 0x400010A3u,
                            0x4000117Au, 0x6000005Du, 0x6000101Du, 0x80000001u, 0xF0000001u}) {
        Json::Value untouched("sentinel");
        int httpStatus = -7;
        EXPECT_FALSE(getJsonResponseByError(number, untouched, &httpStatus)) << std::hex << number;
        EXPECT_EQ(untouched, Json::Value("sentinel"));
        EXPECT_EQ(httpStatus, -7);
    }
}

// By category, with or without a row; 0x40000003 alone answers 401.
TEST(ErrorCatalogue, HttpStatusFollowsTheCategory) {
    const std::pair<uint32_t, int> cases[] = {
        {0x00000000, 200}, {0x10000002, 200}, {0x20000001, 503}, {0x3000100B, 500},
        {0x40000006, 403}, {0x40000003, 401}, {0x40000004, 403}, {0x50000002, 400},
        {0x6FFFFFFF, 400}, {0x70000001, 200}, {0x80000001, 200}, {0xFFFFFFFF, 200},
    };
    for (const auto& [number, http] : cases) {
        EXPECT_EQ(getHttpStatusByErrorNo(number), http) << std::hex << number;
    }
    EXPECT_EQ(getHttpStatusByCategory(4), 403);
    EXPECT_EQ(getHttpStatusByCategory(9), 200);
}

// A few rows of the result-code table; results it does not list (the edges of its ranges
// included) are internal errors, and every number it hands out has a catalogue row.
TEST(ErrorCatalogue, ResultCodesMapToCataloguedNumbers) {
    constexpr uint32_t kInternal = 0x30000014;
    const std::pair<int, uint32_t> rows[] = {
        {0, 0x00000001},   {1, 0x60000001},   {10, 0x4000118A}, {256, 0x6000005F},
        {274, 0x40000006}, {518, 0x40001014}, {-1, kInternal},  {11, kInternal},
        {255, kInternal},  {266, kInternal},  {519, kInternal}, {-2147483647 - 1, kInternal},
    };
    for (const auto& [result, number] : rows)
        EXPECT_EQ(getErrorNoByResult(result), number) << result;
    for (int result = -2; result <= 1030; ++result) {
        EXPECT_NE(subStatusOf(getErrorNoByResult(result)), "") << result;
    }
}

// Each test runs in its own process, so these threads race for the first build.
TEST(ErrorCatalogue, ConcurrentFirstUsersSeeOneCompleteCatalogue) {
    std::vector<size_t> sizes(8);
    std::vector<std::thread> threads;
    for (size_t& size : sizes) {
        threads.emplace_back([&size] {
            size = errorCatalogueSize();
            EXPECT_EQ(subStatusOf(0x40001111), "cloudAnalysisExtractFeaturePointsFailed");
        });
    }
    for (auto& thread : threads) thread.join();
    for (size_t size : sizes) EXPECT_EQ(size, 679u);
}

}  // namespace
}  // namespace QXKORVAProtocol
