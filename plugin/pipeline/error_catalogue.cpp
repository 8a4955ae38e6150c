// The error catalogue: seven ordered maps (one per category) from error number to row, and the
// seven category records. Built once by the first thread that needs it, under the catalogue
// lock; the ready flag is published last, so a reader that sees it set reads the finished maps
// without locking. Nothing modifies the catalogue afterwards.
#include "plugin/pipeline/error_catalogue.h"

#include <atomic>
#include <map>

#include "host/kvl_mutex.h"
#include "plugin/pipeline/error_rows.h"

namespace QXKORVAProtocol {
namespace {

constexpr int kCategoryCount = 7;

struct ErrorEntry {
    std::string_view subStatusCode;
    std::string_view errorMsg;
};

struct ErrorCategory {
    std::string_view statusString;
    int httpStatus = 200;
};

struct Catalogue {
    std::map<uint32_t, ErrorEntry> rows[kCategoryCount];
    ErrorCategory categories[kCategoryCount];
};

// Created empty at library load and never destroyed: callbacks on host threads may still read
// it while the process exits.
Catalogue& g_catalogue = *new Catalogue();
KVL_Mutex& g_catalogueLock = *new KVL_Mutex();
std::atomic<bool> g_ready{false};

// statusCode of an error number: its top four bits; 0 and 1 belong to category 1.
int categoryOf(uint32_t errorNumber) {
    return errorNumber <= 1 ? 1 : static_cast<int>(errorNumber >> 28);
}

bool isKnownCategory(int category) {
    return category >= 1 && category <= kCategoryCount;
}

// Calls visit(number, name) for each row of a run.
template <typename Visit>
void forEachRowOfRun(const ErrorRowRun& run, Visit visit) {
    std::string_view names = run.names;
    uint32_t number = run.firstNumber;
    while (true) {
        const size_t comma = names.find(',');
        visit(number++, names.substr(0, comma));
        if (comma == std::string_view::npos) return;
        names.remove_prefix(comma + 1);
    }
}

// Fills the maps and the category records and sets the ready flag. Runs with the catalogue
// lock held and the flag clear. Inserting a number twice keeps the later row.
void initErrorCatalogue() {
    for (const ErrorRowRun& run : errorRowRuns()) {
        forEachRowOfRun(run, [](uint32_t number, std::string_view name) {
            g_catalogue.rows[categoryOf(number) - 1][number] = ErrorEntry{name, {}};
        });
    }
    for (const ErrorRowMessage& message : errorRowMessages()) {
        auto& rows = g_catalogue.rows[categoryOf(message.number) - 1];
        auto row = rows.find(message.number);
        if (row != rows.end()) row->second.errorMsg = message.errorMsg;
    }
    const auto categories = errorCategoryRows();
    for (size_t i = 0; i < categories.size(); ++i) {
        g_catalogue.categories[i] =
            ErrorCategory{categories[i].statusString, categories[i].httpStatus};
    }
    g_ready.store(true, std::memory_order_release);
}

// The row of a number, or null when its category is outside 1..7 or it has no row.
const ErrorEntry* findRow(uint32_t errorNumber) {
    const int category = categoryOf(errorNumber);
    if (!isKnownCategory(category)) return nullptr;
    const auto& rows = g_catalogue.rows[category - 1];
    auto row = rows.find(errorNumber);
    return row == rows.end() ? nullptr : &row->second;
}

}  // namespace

void ensureErrorCatalogue() {
    if (g_ready.load(std::memory_order_acquire)) return;
    KVL_Guard guard(&g_catalogueLock);
    if (!g_ready.load(std::memory_order_relaxed)) initErrorCatalogue();
}

int getHttpStatusByCategory(int category) {
    ensureErrorCatalogue();
    return isKnownCategory(category) ? g_catalogue.categories[category - 1].httpStatus : 200;
}

int getHttpStatusByErrorNo(uint32_t errorNumber) {
    ensureErrorCatalogue();
    const int category = categoryOf(errorNumber);
    if (!isKnownCategory(category)) return 200;
    if (errorNumber == kErrorBadAuthorization) return 401;
    return g_catalogue.categories[category - 1].httpStatus;
}

bool getJsonResponseByError(uint32_t errorNumber, Json::Value& out, int* httpStatus) {
    ensureErrorCatalogue();
    const ErrorEntry* row = findRow(errorNumber);
    if (row == nullptr) return false;
    const ErrorCategory& category = g_catalogue.categories[categoryOf(errorNumber) - 1];
    if (!out.isObject()) out = Json::Value(Json::objectValue);
    out["statusCode"] = Json::UInt(categoryOf(errorNumber));
    out["statusString"] = std::string(category.statusString);
    out["subStatusCode"] = std::string(row->subStatusCode);
    out["errorCode"] = Json::UInt(errorNumber);
    out["errorMsg"] = std::string(row->errorMsg);
    if (httpStatus != nullptr) *httpStatus = category.httpStatus;
    return true;
}

size_t errorCatalogueSize() {
    size_t total = 0;
    for (int category = 1; category <= kCategoryCount; ++category) {
        total += errorCatalogueSize(category);
    }
    return total;
}

size_t errorCatalogueSize(int category) {
    ensureErrorCatalogue();
    return isKnownCategory(category) ? g_catalogue.rows[category - 1].size() : 0;
}

}  // namespace QXKORVAProtocol
