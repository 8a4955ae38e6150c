#include "gateway/server/default_content_type.h"

namespace korva::gateway {

std::string guessContentType(const std::string& body) {
    for (char c : body) {
        if (c == ' ' || c == '\t' || c == '\r' || c == '\n') continue;
        if (c == '<') return "application/xml";
        if (c == '{' || c == '[') return "application/json";
        break;
    }
    return body.empty() ? "" : "text/plain";
}

void addDefaultContentType(HeaderList& headers, const std::string& body) {
    if (hasHeader(headers, "Content-Type")) return;
    std::string type = guessContentType(body);
    if (!type.empty()) headers.emplace_back("Content-Type", std::move(type));
}

}  // namespace korva::gateway
