// The admin console's static files (index.html, console.css, console.js of this folder),
// embedded in the binary at build time. Immutable; thread-safe.
#pragma once

#include <string_view>

namespace korva::gateway {

struct ConsoleAsset {
    std::string_view path;         // "/index.html", "/console.js", ...
    std::string_view contentType;  // with charset for text
    std::string_view bytes;
};

// The asset served at `path` ("/" is "/index.html"), or null.
const ConsoleAsset* findConsoleAsset(std::string_view path);

}  // namespace korva::gateway
