// Runtime library: string helpers, millisecond tick, atomics, last-error values.
// All functions are thread-safe.
#pragma once

#include <cstdint>

// strcmp that treats a null pointer as the empty string.
int KVL_Strcmp(const char* a, const char* b);

// Writes value in the given radix (2..36, negative only for radix 10) into buffer, which must
// hold at least 34 bytes; returns buffer.
char* KVL_Itoa(int value, char* buffer, int radix);

// Leading optional white space, optional sign, decimal digits; 0 when there are no digits.
// Values beyond the signed 32-bit range saturate.
int32_t KVL_Atoi32(const char* text);

// Milliseconds from an arbitrary origin, as an unsigned 32-bit counter that wraps to 0 after
// 0xFFFFFFFF. Compare ticks only by unsigned subtraction.
uint32_t KVL_GetTimeTick();

// Atomically adds 1 to *value and returns the new value.
int32_t KVL_AtomicInc(volatile int32_t* value);
// Atomically subtracts 1 from *value and returns the new value.
int32_t KVL_AtomicDec(volatile int32_t* value);

// Per-thread last error of the runtime's own functions (0 = none).
int KVL_GetLastError();
void KVL_SetLastError(int error);
// The operating system's last error of the calling thread (errno).
int KVL_GetSystemLastError();
