// The host's logging library: one printf-style function.
//
// level: 1 (most detailed) to 5 (failures); lines below the configured threshold are dropped.
// module: a short tag naming the caller ("QXW" for the protocol plug-in).
// Thread-safe; each call writes one whole line.
#pragma once

void QX_Log_Print(int level, const char* module, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
