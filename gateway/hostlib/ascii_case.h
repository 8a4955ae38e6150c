// The one case-insensitive text comparison of the host and the gateway (ASCII letters only, as
// HTTP header names, schemes and tokens need): Beast's iequals, taking std::string_view.
// Thread safety: a pure function.
#pragma once

#include <boost/beast/core/string.hpp>
#include <string_view>

namespace korva {

inline bool equalsIgnoreCase(std::string_view a, std::string_view b) {
    return boost::beast::iequals(boost::beast::string_view(a.data(), a.size()),
                                 boost::beast::string_view(b.data(), b.size()));
}

}  // namespace korva
