// Runtime library: string helpers, millisecond tick, atomics, last-error values.
#include "host/kvl_runtime.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstring>

#include "gateway/hostlib/runtime_clock.h"

namespace {
thread_local int t_lastError = 0;
}

int KVL_Strcmp(const char* a, const char* b) {
    return std::strcmp(a != nullptr ? a : "", b != nullptr ? b : "");
}

char* KVL_Itoa(int value, char* buffer, int radix) {
    if (buffer == nullptr) {
        KVL_SetLastError(EINVAL);
        return nullptr;
    }
    if (radix < 2 || radix > 36) {
        buffer[0] = '\0';
        KVL_SetLastError(EINVAL);
        return buffer;
    }
    static const char kDigits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
    // Negative values carry a sign only in radix 10; other radices show the two's complement.
    bool negative = radix == 10 && value < 0;
    uint32_t magnitude =
        negative ? 0u - static_cast<uint32_t>(value) : static_cast<uint32_t>(value);
    char reversed[33];
    int n = 0;
    do {
        reversed[n++] = kDigits[magnitude % static_cast<uint32_t>(radix)];
        magnitude /= static_cast<uint32_t>(radix);
    } while (magnitude != 0);
    char* out = buffer;
    if (negative) *out++ = '-';
    while (n > 0) *out++ = reversed[--n];
    *out = '\0';
    return buffer;
}

int32_t KVL_Atoi32(const char* text) {
    if (text == nullptr) return 0;
    const unsigned char* p = reinterpret_cast<const unsigned char*>(text);
    while (std::isspace(*p)) ++p;
    bool negative = false;
    if (*p == '+' || *p == '-') {
        negative = *p == '-';
        ++p;
    }
    // Accumulate as a negative number so that INT32_MIN is reachable without overflow.
    int64_t acc = 0;
    const int64_t limit = negative ? -static_cast<int64_t>(INT32_MIN) : INT32_MAX;
    while (*p >= '0' && *p <= '9') {
        acc = acc * 10 + (*p - '0');
        if (acc > limit) {
            acc = limit;
            // Skip the remaining digits: the value saturates.
            while (*p >= '0' && *p <= '9') ++p;
            break;
        }
        ++p;
    }
    return static_cast<int32_t>(negative ? -acc : acc);
}

uint32_t KVL_GetTimeTick() {
    return korva::host::detail::tickNow();
}

int32_t KVL_AtomicInc(volatile int32_t* value) {
    return __atomic_add_fetch(value, 1, __ATOMIC_SEQ_CST);
}

int32_t KVL_AtomicDec(volatile int32_t* value) {
    return __atomic_sub_fetch(value, 1, __ATOMIC_SEQ_CST);
}

int KVL_GetLastError() {
    return t_lastError;
}

void KVL_SetLastError(int error) {
    t_lastError = error;
}

int KVL_GetSystemLastError() {
    return errno;
}
