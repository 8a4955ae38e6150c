// The headers of an answer as a handler or the plug-in gives them: name/value pairs in the order
// they are to be sent. Thread safety: plain values; the function is pure.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "gateway/hostlib/ascii_case.h"

namespace korva::gateway {

using HeaderList = std::vector<std::pair<std::string, std::string>>;

// True when `headers` hold a header of this name (compared without regard to case).
inline bool hasHeader(const HeaderList& headers, const std::string& name) {
    for (const auto& header : headers) {
        if (equalsIgnoreCase(header.first, name)) return true;
    }
    return false;
}

}  // namespace korva::gateway
