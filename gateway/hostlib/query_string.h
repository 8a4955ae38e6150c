// The one reader of URL query strings in the host: the "name=value" fields after the first '?',
// split at '&' (a field without '=' has an empty value). Values are returned as written, without
// percent-decoding: the devices and the plug-in compare them as text.
// Thread safety: pure functions; the views point into the caller's URL.
#pragma once

#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace korva {

using QueryField = std::pair<std::string_view, std::string_view>;  // name, value

// Every field of the query of `url`, in order; empty when there is no query.
std::vector<QueryField> queryFields(std::string_view url);

// The value of the first field called `name`; nullopt when there is none.
std::optional<std::string_view> queryParameter(std::string_view url, std::string_view name);

}  // namespace korva
