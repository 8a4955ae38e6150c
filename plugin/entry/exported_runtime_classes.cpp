// The library's interface includes the inline members of a few host runtime classes (mutexes,
// the guard, the string helper and the database value classes). Nothing in the plug-in calls
// them, so this file makes the compiler emit each of them: member functions through a kept
// table of their addresses, constructors and destructors through kept functions that run them.
// The classes carry default visibility, and the export list (exports.map) lets exactly these
// members through. This file is compiled without inlining so that the kept functions call the
// out-of-line copies instead of absorbing them.
#include <cstddef>

#include "host/kvl_mutex.h"
#include "host/sqlite3_do.h"

namespace QXKORVAProtocol {
namespace {

// CheckIndex is private. An explicit instantiation may name private members, so this template
// carries its address into a kept variable without widening the class's interface.
template <bool (Sqlite3DO::CSQLite3Recordset::*Member)(int32_t) const>
struct KeepRecordsetIndexCheck {
    [[gnu::used]] static inline const auto kAddress = Member;
};
template struct KeepRecordsetIndexCheck<&Sqlite3DO::CSQLite3Recordset::CheckIndex>;

[[gnu::used]] const auto kMutexMembers = &kvl::kvl_mutex::operator=;
[[gnu::used]] const auto kRecursiveMutexMembers = &kvl::kvl_recursive_mutex::operator=;

[[gnu::used]] const struct {
    void (KVL_Guard::*release)();
    KVL_Guard& (KVL_Guard::*assign)(const KVL_Guard&);
    void (KVL_Guard::*zeroFill)(std::size_t);
} kGuardMembers = {&KVL_Guard::Release, &KVL_Guard::operator=, &KVL_Guard::__autoclassinit2};

[[gnu::used]] const struct {
    kvl::kvl_string& (kvl::kvl_string::*copyAssign)(const kvl::kvl_string&);
    kvl::kvl_string& (kvl::kvl_string::*moveAssign)(kvl::kvl_string&&);
} kStringMembers = {&kvl::kvl_string::operator=, &kvl::kvl_string::operator= };

[[gnu::used]] const struct {
    int32_t (Sqlite3DO::CSQlite3Error::*errCode)() const;
    const char* (Sqlite3DO::CSQlite3Error::*errMsg)() const;
    const char* (Sqlite3DO::CSQlite3Error::*what)() const noexcept;
    Sqlite3DO::CSQlite3Error& (Sqlite3DO::CSQlite3Error::*assign)(const Sqlite3DO::CSQlite3Error&);
} kErrorMembers = {&Sqlite3DO::CSQlite3Error::ErrCode, &Sqlite3DO::CSQlite3Error::ErrMsg,
                   &Sqlite3DO::CSQlite3Error::what, &Sqlite3DO::CSQlite3Error::operator= };

[[gnu::used]] const struct {
    bool (Sqlite3DO::CSQLite3Recordset::*isAttach)() const;
    bool (Sqlite3DO::CSQLite3Recordset::*isEof)() const;
    int32_t (Sqlite3DO::CSQLite3Recordset::*fieldCount)() const;
    bool (Sqlite3DO::CSQLite3Recordset::*isValidIndex)(int32_t) const;
    Sqlite3DO::CSQLite3Recordset& (Sqlite3DO::CSQLite3Recordset::*assign)(
        const Sqlite3DO::CSQLite3Recordset&);
    void (Sqlite3DO::CSQLite3Recordset::*zeroFill)(std::size_t);
} kRecordsetMembers = {
    &Sqlite3DO::CSQLite3Recordset::IsAttach,      &Sqlite3DO::CSQLite3Recordset::IsEOF,
    &Sqlite3DO::CSQLite3Recordset::GetFieldCount, &Sqlite3DO::CSQLite3Recordset::IsValidIndex,
    &Sqlite3DO::CSQLite3Recordset::operator=,     &Sqlite3DO::CSQLite3Recordset::__autoclassinit2};

// Makes an object observable, so that the optimiser cannot drop the constructor and destructor
// calls around it even when it proves them free of side effects.
template <typename T>
void escape(T& object) {
    asm volatile("" : : "g"(&object) : "memory");
}

// Constructors and destructors have no address; these kept functions run them.
[[gnu::used]] void keepGuardLifetime(KVL_Mutex* mutex) {
    KVL_Guard guard(mutex);
    escape(guard);
}

[[gnu::used]] void keepRecursiveMutexCopy(const kvl::kvl_recursive_mutex& other) {
    kvl::kvl_recursive_mutex copy(other);
    escape(copy);
}

[[gnu::used]] void keepErrorCopy(const Sqlite3DO::CSQlite3Error& other) {
    Sqlite3DO::CSQlite3Error copy(other);
    escape(copy);
}

}  // namespace
}  // namespace QXKORVAProtocol
