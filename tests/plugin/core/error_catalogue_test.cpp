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
    const size_t expected[] = {2, 11, 33, 424, 3, 204, 2};
    for (int category = 1; category <= 7; ++category) {
        EXPECT_EQ(errorCatalogueSize(category), expected[category - 1]) << category;
    }
    EXPECT_EQ(errorCatalogueSize(0), 0u);
    EXPECT_EQ(errorCatalogueSize(8), 0u);
}

TEST(ErrorCatalogue, FindsRowsByNumber) {
    const struct {
        uint32_t number;
        const char* subStatusCode;
    } rows[] = {
        // Named lookups, and the first and last rows of runs next to gaps.
        {0x40001005, "importError"},
        {0x6000000D, "importErrorData"},
        {0x4000102D, "getClientAddedNodeFailed"},
        {0x40001113, "getAddedNodeInformationFailed"},
        {0x400010FE, "mainAndBackupNodeCannotModifyManagementNetworkInterfaceIP"},
        {0x40001111, "cloudAnalysisExtractFeaturePointsFailed"},
        {0x10000002, "riskPassword"},
        {0x3000100A, "wifiException"},
        {0x3000100C, "uninitialized"},
        {0x400010A2, "libraryArmed"},
        {0x400010A7, "SessionExpired"},
        {0x4000118D,
         "frequentlyAppearedPersonAlarmIs AlreadyConfiguredForTheCameraDisarmFirstAndTryAgain"},
        {0x60000054, "importErrorData"},
        {0x6000005F, "passworLlenNoMoreThan16"},
        {0x60007012, "invalidFaceRegion"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(subStatusOf(row.number), row.subStatusCode) << std::hex << row.number;
    }
}

TEST(ErrorCatalogue, NumbersWithoutRowsAreUnknown) {
    // 0 has a category but no row; the others fall into gaps between runs, or in category 8.
    for (uint32_t number :
         {0x00000000u, 0x10000001u, 0x2000000Cu, 0x3000100Bu, 0x400010A3u, 0x4000114Eu, 0x4000117Au,
          0x6000005Du, 0x6000101Du, 0x80000001u, 0xF0000001u}) {
        Json::Value untouched("sentinel");
        int httpStatus = -7;
        EXPECT_FALSE(getJsonResponseByError(number, untouched, &httpStatus)) << std::hex << number;
        EXPECT_EQ(untouched, Json::Value("sentinel"));
        EXPECT_EQ(httpStatus, -7);
    }
}

TEST(ErrorCatalogue, RowsThatReachAnswersCarryTheirMessages) {
    const struct {
        uint32_t number;
        int statusCode;
        const char* statusString;
        int httpStatus;
        const char* errorMsg;
    } rows[] = {
        {0x00000001, 1, "OK", 200, "Operation completed."},
        {0x30000014, 3, "Device Error", 500, "Internal error."},
        {0x40000003, 4, "Invalid Operation", 403, "Authentication failed."},
        {0x40000007, 4, "Invalid Operation", 403, "Inactivated."},
        {0x4000118A, 4, "Invalid Operation", 403, "No more task can be added."},
        {0x60000001, 6, "Content Error", 400, "Incorrect parameter."},
        {0x70000001, 7, "Reboot Required", 200, "Reboot device to take effect."},
        {0x70000002, 7, "Reboot Required", 200, "autoReboot"},
        {0x20000004, 2, "Device Busy", 503, ""},
        {0x50000001, 5, "Invalid Format", 400, ""},
    };
    for (const auto& row : rows) {
        Json::Value status;
        int httpStatus = 0;
        ASSERT_TRUE(getJsonResponseByError(row.number, status, &httpStatus))
            << std::hex << row.number;
        EXPECT_EQ(status["statusCode"].asInt(), row.statusCode) << std::hex << row.number;
        EXPECT_EQ(status["statusString"], row.statusString) << std::hex << row.number;
        EXPECT_EQ(httpStatus, row.httpStatus) << std::hex << row.number;
        EXPECT_EQ(status["errorMsg"], row.errorMsg) << std::hex << row.number;
    }
}

TEST(ErrorCatalogue, HttpStatusFollowsTheCategoryWithOrWithoutARow) {
    const struct {
        uint32_t number;
        int httpStatus;
    } cases[] = {
        {0x00000000, 200}, {0x00000001, 200}, {0x10000002, 200}, {0x20000001, 503},
        {0x30000014, 500}, {0x3000100B, 500}, {0x40000006, 403}, {0x40000003, 401},
        {0x40000004, 403}, {0x50000002, 400}, {0x6FFFFFFF, 400}, {0x70000001, 200},
        {0x80000001, 200}, {0xFFFFFFFF, 200},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(getHttpStatusByErrorNo(c.number), c.httpStatus) << std::hex << c.number;
    }
    EXPECT_EQ(getHttpStatusByCategory(3), 500);
    EXPECT_EQ(getHttpStatusByCategory(4), 403);
    EXPECT_EQ(getHttpStatusByCategory(0), 200);
    EXPECT_EQ(getHttpStatusByCategory(9), 200);
}

// The whole table, including the boundaries of every "any other" range.
TEST(ErrorCatalogue, ResultCodesMapToTheirErrorNumbers) {
    const struct {
        int result;
        uint32_t errorNumber;
        const char* subStatusCode;
    } cases[] = {
        {0, 0x00000001, "ok"},
        {1, 0x60000001, "badParameters"},
        {2, 0x40001007, "fileAlreadyExists"},
        {3, 0x400010EA, "writeFileError"},
        {4, 0x60000001, "badParameters"},
        {5, 0x4000108D, "noMoreCamerasAdded"},
        {6, 0x40001054, "deviceExist"},
        {7, 0x60000001, "badParameters"},
        {8, 0x60000001, "badParameters"},
        {9, 0x30000014, "internalError"},
        {10, 0x4000118A, "noMoreTasksCanBeAdded"},
        {256, 0x6000005F, "passworLlenNoMoreThan16"},
        {257, 0x60000015, "riskPassword"},
        {258, 0x400010E7, "passError"},
        {259, 0x400010E8, "cannotSameAsOldPassword"},
        {260, 0x6000000B, "badPort"},
        {261, 0x60000001, "badParameters"},
        {262, 0x60000001, "badParameters"},
        {263, 0x40000008, "hasActivated"},
        {264, 0x60000001, "badParameters"},
        {265, 0x60000001, "badParameters"},
        {272, 0x60000001, "badParameters"},
        {273, 0x40001187, "settingAlgorithmTypeForDeviceFailed"},
        {274, 0x40000006, "invalidOperation"},
        {512, 0x60000001, "badParameters"},
        {513, 0x60000001, "badParameters"},
        {514, 0x40001014, "openFileError"},
        {515, 0x40000006, "invalidOperation"},
        {516, 0x40000009, "certificateAlreadyExist"},
        {517, 0x40001014, "openFileError"},
        {518, 0x40001014, "openFileError"},
        // Everything else is an internal error.
        {-1, 0x30000014, "internalError"},
        {-2147483647 - 1, 0x30000014, "internalError"},
        {11, 0x30000014, "internalError"},
        {255, 0x30000014, "internalError"},
        {266, 0x30000014, "internalError"},
        {271, 0x30000014, "internalError"},
        {275, 0x30000014, "internalError"},
        {511, 0x30000014, "internalError"},
        {519, 0x30000014, "internalError"},
        {1028, 0x30000014, "internalError"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(getErrorNoByResult(c.result), c.errorNumber) << c.result;
        EXPECT_EQ(subStatusOf(c.errorNumber), c.subStatusCode) << c.result;
    }
}

// Each test runs in its own process, so these threads race for the first build.
TEST(ErrorCatalogue, ConcurrentFirstUsersSeeOneCompleteCatalogue) {
    std::vector<std::thread> threads;
    std::vector<size_t> sizes(8);
    for (size_t i = 0; i < sizes.size(); ++i) {
        threads.emplace_back([&sizes, i] {
            sizes[i] = errorCatalogueSize();
            EXPECT_EQ(subStatusOf(0x40001111), "cloudAnalysisExtractFeaturePointsFailed");
        });
    }
    for (auto& thread : threads) thread.join();
    for (size_t size : sizes) EXPECT_EQ(size, 679u);
}

}  // namespace
}  // namespace QXKORVAProtocol
