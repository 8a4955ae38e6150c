#include "gateway/sim/json_util.h"

#include "gateway/hostlib/json_text.h"

namespace korva::sim {

bool parseJson(const std::string& text, Json::Value* out) {
    return korva::host::parseJsonText(text, korva::host::JsonLimits{}, out);
}

std::string writeJson(const Json::Value& value) {
    return korva::host::writeCompactJson(value);
}

const Json::Value& member(const Json::Value& value, const char* name) {
    static const Json::Value kNull;
    if (!value.isObject()) return kNull;
    const Json::Value* found = value.find(name, name + std::char_traits<char>::length(name));
    return found ? *found : kNull;
}

void mergeInto(Json::Value& target, const Json::Value& patch) {
    if (!patch.isObject()) return;
    if (!target.isObject()) target = Json::Value(Json::objectValue);
    for (const auto& name : patch.getMemberNames()) {
        const Json::Value& value = patch[name];
        if (value.isObject() && target.isMember(name) && target[name].isObject()) {
            mergeInto(target[name], value);
        } else {
            target[name] = value;
        }
    }
}

}  // namespace korva::sim
