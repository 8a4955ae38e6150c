#include "gateway/sim/path_pattern.h"

#include <string_view>

namespace korva::sim {

namespace {

bool parseInt(std::string_view text, int* out) {
    bool negative = false;
    if (!text.empty() && text.front() == '-') {
        negative = true;
        text.remove_prefix(1);
    }
    if (text.empty() || text.size() > 9) return false;
    int value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return false;
        value = value * 10 + (c - '0');
    }
    *out = negative ? -value : value;
    return true;
}

// Splits off the next "/"-separated segment; false at the end.
bool nextSegment(std::string_view* rest, std::string_view* segment) {
    if (rest->empty()) return false;
    if (rest->front() == '/') rest->remove_prefix(1);
    const auto slash = rest->find('/');
    *segment = rest->substr(0, slash);
    rest->remove_prefix(slash == std::string_view::npos ? rest->size() : slash);
    return true;
}

}  // namespace

bool matchPath(const std::string& pattern, const std::string& path, std::vector<int>* numbers) {
    if (pattern.empty() || path.empty() || path.front() != '/') return false;
    std::string_view patternRest(pattern);
    std::string_view pathRest(path);
    std::string_view expected;
    std::string_view actual;
    numbers->clear();
    while (nextSegment(&patternRest, &expected)) {
        if (!nextSegment(&pathRest, &actual)) return false;
        if (expected == "{}") {
            int value = 0;
            if (!parseInt(actual, &value)) return false;
            numbers->push_back(value);
        } else if (expected != actual) {
            return false;
        }
    }
    return pathRest.empty();
}

}  // namespace korva::sim
