#include "gateway/hostlib/json_text.h"

#include <cctype>
#include <exception>
#include <memory>

namespace korva::host {

namespace {

std::string position(std::size_t line, std::size_t column) {
    return "(line " + std::to_string(line) + ", column " + std::to_string(column) + ")";
}

// Scans the nesting outside strings; false with a problem when it goes beyond maxDepth. Done
// before the parser runs, so no parser recursion or exception depends on hostile depth.
bool withinDepth(std::string_view text, int maxDepth, std::string* problem) {
    int depth = 0;
    bool inString = false;
    bool escaped = false;
    std::size_t line = 1;
    std::size_t lineStart = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '\n') {
            ++line;
            lineStart = i + 1;
        }
        if (inString) {
            if (escaped) {
                escaped = false;
            } else if (c == '\\') {
                escaped = true;
            } else if (c == '"') {
                inString = false;
            }
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > maxDepth) {
                *problem = "nested deeper than " + std::to_string(maxDepth) + " levels " +
                           position(line, i - lineStart + 1);
                return false;
            }
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth;
        }
    }
    return true;
}

// JsonCpp's first error ("* Line 3, Column 5\n  Duplicate key: 'realm'\n...") as one line:
// "Duplicate key: 'realm' (line 3, column 5)"; the duplicated member into `member`.
void describe(const std::string& errors, JsonProblem* out) {
    std::string where;
    std::string message = errors;
    if (errors.rfind("* ", 0) == 0) {
        const auto end = errors.find('\n');
        where = errors.substr(2, end == std::string::npos ? std::string::npos : end - 2);
        message = end == std::string::npos ? "" : errors.substr(end + 1);
    }
    if (const auto end = message.find('\n'); end != std::string::npos) message.resize(end);
    if (const auto start = message.find_first_not_of(' '); start != std::string::npos) {
        message.erase(0, start);
    }
    for (auto& c : where) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    out->problem = where.empty() ? message : message + " (" + where + ")";
    static constexpr std::string_view kDuplicate = "Duplicate key: '";
    if (message.rfind(kDuplicate, 0) == 0 && message.size() > kDuplicate.size() &&
        message.back() == '\'') {
        out->member = message.substr(kDuplicate.size(), message.size() - kDuplicate.size() - 1);
    }
}

std::unique_ptr<Json::CharReader> makeReader(const JsonLimits& limits) {
    Json::CharReaderBuilder builder;
    builder["collectComments"] = false;
    builder["failIfExtra"] = true;
    builder["strictRoot"] = limits.strictRoot;
    builder["rejectDupKeys"] = limits.rejectDupKeys;
    // A backstop above the scan's limit: the scan has refused anything deeper already.
    builder["stackLimit"] = limits.maxDepth + 2;
    return std::unique_ptr<Json::CharReader>(builder.newCharReader());
}

}  // namespace

bool parseJsonText(std::string_view text, const JsonLimits& limits, Json::Value* out,
                   JsonProblem* problem) {
    JsonProblem local;
    JsonProblem& result = problem != nullptr ? *problem : local;
    result = {};
    if (text.size() > limits.maxBytes) {
        result.problem = "larger than " + std::to_string(limits.maxBytes) + " bytes";
        return false;
    }
    if (!withinDepth(text, limits.maxDepth, &result.problem)) return false;
    try {
        Json::Value root;
        std::string errors;
        if (!makeReader(limits)->parse(text.data(), text.data() + text.size(), &root, &errors)) {
            describe(errors, &result);
            if (result.problem.empty()) result.problem = "not valid JSON";
            return false;
        }
        *out = std::move(root);
        return true;
    } catch (const std::exception& error) {
        result.problem = error.what();
        return false;
    }
}

std::string writeCompactJson(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    // 15 significant digits: a decimal such as 32.104 is written back as given, where the
    // default 17 would show the binary neighbour (32.103999999999999).
    builder["precision"] = 15;
    return Json::writeString(builder, value);
}

}  // namespace korva::host
