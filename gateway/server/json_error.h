// The body of the answers the gateway gives itself (limits, timeouts, the admin API):
// a small JSON document. Thread safety: a pure function.
#pragma once

#include <string>

namespace korva::gateway {

// {"error":"<text>","status":<status>} and a line end.
std::string jsonError(int status, const std::string& text);

}  // namespace korva::gateway
