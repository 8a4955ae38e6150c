// Host helpers: digest nonces and ISO 8601 time.
#pragma once

#include <string>

// Writes a NUL-terminated nonce of fewer than size bytes into buffer (size >= 64 needed for a
// full nonce). The host's digest check accepts such nonces until they expire.
// Returns 0 on success, -1 when the buffer is null or too small.
int CreateNonce(char* buffer, int size);

// The current time as "YYYY-MM-DDThh:mm:ss+hh:mm": local time with its offset when utc is 0,
// UTC ("+00:00") otherwise.
std::string GetCurTime8601(int utc);
