#include "gateway/hostlib/query_string.h"

namespace korva {

std::vector<QueryField> queryFields(std::string_view url) {
    std::vector<QueryField> fields;
    const std::size_t question = url.find('?');
    if (question == std::string_view::npos) return fields;
    std::string_view query = url.substr(question + 1);
    while (true) {
        const std::size_t amp = query.find('&');
        const std::string_view field = query.substr(0, amp);
        const std::size_t equals = field.find('=');
        fields.emplace_back(field.substr(0, equals), equals == std::string_view::npos
                                                         ? std::string_view()
                                                         : field.substr(equals + 1));
        if (amp == std::string_view::npos) break;
        query.remove_prefix(amp + 1);
    }
    return fields;
}

std::optional<std::string_view> queryParameter(std::string_view url, std::string_view name) {
    for (const auto& [field, value] : queryFields(url)) {
        if (field == name) return value;
    }
    return std::nullopt;
}

}  // namespace korva
