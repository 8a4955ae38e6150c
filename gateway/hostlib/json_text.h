// The one way the gateway reads JSON text: every parse runs within explicit limits (size,
// nesting depth) and never throws, whatever the bytes. Configuration, device profiles, admin API
// bodies, alarm-bus bodies and the simulated devices all parse through it.
// Thread-safe: no shared state.
#pragma once

#include <json/json.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace korva::host {

struct JsonLimits {
    std::size_t maxBytes = 1 << 20;  // longer text is refused unparsed
    int maxDepth = 64;               // arrays and objects nested deeper are refused
    bool strictRoot = false;         // the root must be an object or an array
    bool rejectDupKeys = false;      // an object naming one member twice is refused
};

// Why a text was refused: `problem` is one line for people ("nested deeper than 64 levels
// (line 1, column 65)"); `member` names the duplicated member when that was the problem.
struct JsonProblem {
    std::string problem;
    std::string member;
};

// Parses `text` as exactly one JSON value (white space around it allowed, comments too). False
// when it is not JSON within the limits; `problem` (optional) then says why. Never throws.
bool parseJsonText(std::string_view text, const JsonLimits& limits, Json::Value* out,
                   JsonProblem* problem = nullptr);

// The one JSON writer of the host and the gateway: compact text (no indentation, no trailing
// newline), members in JsonCpp's order.
std::string writeCompactJson(const Json::Value& value);

}  // namespace korva::host
