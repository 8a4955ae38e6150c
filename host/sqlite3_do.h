// Small value classes of the host's database access library. A protocol plug-in re-exports
// their inline members; it does not use a database itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <string>

#include "host/host_api.h"

namespace Sqlite3DO {

// An error of the database library: a 32-bit code and a message.
class QX_HOST_EXPORTED_CLASS CSQlite3Error : public std::exception {
  public:
    CSQlite3Error(int32_t code, std::string message)
        : m_code(code), m_message(std::move(message)) {}
    CSQlite3Error(const CSQlite3Error& other)
        : std::exception(other), m_code(other.m_code), m_message(other.m_message) {}
    // Member-wise, so assigning an error to itself is harmless.
    // NOLINTNEXTLINE(bugprone-unhandled-self-assignment)
    CSQlite3Error& operator=(const CSQlite3Error& other) {
        m_code = other.m_code;
        m_message = other.m_message;
        return *this;
    }
    ~CSQlite3Error() override {}

    int32_t ErrCode() const { return m_code; }
    const char* ErrMsg() const { return m_message.c_str(); }
    const char* what() const noexcept override { return m_message.c_str(); }

  private:
    int32_t m_code;
    std::string m_message;
};

// A cursor over a query result: attached when both handles are set.
class QX_HOST_EXPORTED_CLASS CSQLite3Recordset {
  public:
    CSQLite3Recordset() : m_database(nullptr), m_statement(nullptr), m_fieldCount(0), m_eof(true) {}
    CSQLite3Recordset(void* database, void* statement, int32_t fieldCount, bool eof)
        : m_database(database), m_statement(statement), m_fieldCount(fieldCount), m_eof(eof) {}
    // NOLINTNEXTLINE(bugprone-unhandled-self-assignment)
    CSQLite3Recordset& operator=(const CSQLite3Recordset& other) {
        m_database = other.m_database;
        m_statement = other.m_statement;
        m_fieldCount = other.m_fieldCount;
        m_eof = other.m_eof;
        return *this;
    }

    bool IsAttach() const { return m_database != nullptr && m_statement != nullptr; }
    bool IsEOF() const { return m_eof; }
    int32_t GetFieldCount() const { return m_fieldCount; }
    // The name is the host interface's own.
    // NOLINTNEXTLINE(bugprone-reserved-identifier)
    void __autoclassinit2(std::size_t size) { std::memset(static_cast<void*>(this), 0, size); }

    // Exposes the private index check to tests of the exported interface.
    bool IsValidIndex(int32_t index) const { return CheckIndex(index); }

  private:
    bool CheckIndex(int32_t index) const { return index >= 0 && index < m_fieldCount; }

    void* m_database;
    void* m_statement;
    int32_t m_fieldCount;
    bool m_eof;
};

}  // namespace Sqlite3DO
