// Matching of device request paths against patterns whose "{}" segments are decimal integers.
#pragma once

#include <string>
#include <vector>

namespace korva::sim {

// True when `path` has exactly the segments of `pattern`; each "{}" segment must be an integer
// (optional "-", then 1 to 9 digits) and is appended to *numbers.
bool matchPath(const std::string& pattern, const std::string& path, std::vector<int>* numbers);

}  // namespace korva::sim
