// Shared set-up of the fuzz targets: a quiet host log that still formats every line, and a
// check that reports a broken invariant as a crash with the offending input's context.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

#include "gateway/hostlib/host_logging.h"

namespace korva::fuzz {

// Every log line is formatted (that code runs on the fuzzed text too) and then dropped.
inline void quietHostLog() {
    korva::host::setLogLevel(1);
    korva::host::setLogSink([](int, const std::string&, const std::string&) {});
}

// Aborts with a message when an invariant of the code under test does not hold; libFuzzer then
// saves the input as a crash artifact.
inline void require(bool condition, const char* what, const std::string& detail = {}) {
    if (condition) return;
    std::fprintf(stderr, "fuzz invariant broken: %s\n%s\n", what, detail.c_str());
    std::abort();
}

}  // namespace korva::fuzz
