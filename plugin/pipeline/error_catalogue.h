// The error catalogue: error number -> category (statusCode, statusString, HTTP status) and row
// (subStatusCode, errorMsg), and the table from host/conversion result codes to error numbers.
// Built once on first need under its lock, then read without locking from any thread.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

#include "host/xml_base.h"

namespace QXKORVAProtocol {

// Error numbers the plug-in itself produces.
enum : uint32_t {
    kErrorOk = 0x00000001,
    kErrorInternal = 0x30000014,
    kErrorBadAuthorization = 0x40000003,
    kErrorInvalidOperation = 0x40000006,
    kErrorNotActivated = 0x40000007,
    kErrorNoMoreTasks = 0x4000118A,
    kErrorBadParameters = 0x60000001,
};

// Result codes of conversions.
enum : int { kResultOk = 0, kResultNotMine = -1, kResultConvertFailed = 9 };

// Makes sure the catalogue is built (lock, build when not yet built, unlock).
void ensureErrorCatalogue();

// HTTP status of a category 1..7 (after ensureErrorCatalogue); 200 outside that range.
int getHttpStatusByCategory(int category);

// Error number of a host or conversion result code.
uint32_t getErrorNoByResult(int result);

// HTTP status of an error number: its category's, 401 for 0x40000003, 200 outside 1..7.
int getHttpStatusByErrorNo(uint32_t errorNumber);

// Fills out with statusCode, statusString, subStatusCode, errorCode, errorMsg and *httpStatus
// with the category's status. False (nothing touched) for an unknown number.
bool getJsonResponseByError(uint32_t errorNumber, Json::Value& out, int* httpStatus);

// Adds statusCode, statusString, subStatusCode to doc (its current element is the root).
// 1 when added, 0 for an unknown number.
int getResStatusByErrorNo(int* httpStatus, int errorNumber, QXBase::CXmlBase& doc);

// The document's text, written into a 20480-byte buffer (longer documents are cut).
std::string xmlToString(const QXBase::CXmlBase& doc);

// Number of rows (all categories) and of one category; for tests of the catalogue's content.
size_t errorCatalogueSize();
size_t errorCatalogueSize(int category);

}  // namespace QXKORVAProtocol
