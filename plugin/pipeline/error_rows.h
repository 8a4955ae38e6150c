// The rows of the error catalogue as data: runs of consecutive error numbers with the
// subStatusCode of each number, and the errorMsg texts of the rows that carry one. The
// catalogue (error_catalogue.cpp) expands them once when it is built.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace QXKORVAProtocol {

// A run of rows: firstNumber gets the first name, firstNumber + 1 the second, and so on.
// names is a comma-separated list (names may contain spaces, never commas).
struct ErrorRowRun {
    uint32_t firstNumber;
    std::string_view names;
};

// The errorMsg of one row; rows without such an entry have an empty errorMsg.
struct ErrorRowMessage {
    uint32_t number;
    std::string_view errorMsg;
};

// Category records, indexed by statusCode - 1.
struct ErrorCategoryRow {
    std::string_view statusString;
    int httpStatus;
};

// All texts are string literals: they live as long as the program.
std::span<const ErrorRowRun> errorRowRuns();
std::span<const ErrorRowMessage> errorRowMessages();
std::span<const ErrorCategoryRow, 7> errorCategoryRows();

}  // namespace QXKORVAProtocol
